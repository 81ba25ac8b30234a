#include "service/api_messages.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>

#include "settings/server_address.h"

namespace service {
namespace {

constexpr const char* kIncomplete =
    "Connection authorization response is missing connectionId, assignedAddress, or routes.";

std::string GrantFailure(std::wstring_view data) {
  try {
    ReadConnectionGrant(settings::ReadJsonDocument(data));
  } catch (const std::runtime_error& error) {
    return error.what();
  }
  return "(none)";
}

TEST(ConnectionUrls, AppendTheEndpointToTheNormalisedServer) {
  EXPECT_EQ(AuthorizationUrl(L"http://192.0.2.10:31080"),
            L"http://192.0.2.10:31080/api/connections/request");
  EXPECT_EQ(AuthorizationUrl(L" 10.1.2.3:8080/ "), L"http://10.1.2.3:8080/api/connections/request");
  EXPECT_EQ(AuthorizationUrl(L""), settings::DefaultServerUrl() + L"/api/connections/request");
  EXPECT_EQ(DisconnectUrl(L"https:\\\\host\\", L"c1"),
            L"https://host/api/connections/c1/disconnect");
}

TEST(ConnectionUrls, UseTheConnectionIdAsStored) {
  EXPECT_EQ(DisconnectUrl(L"http://h", L"a b/%2F?中"),
            L"http://h/api/connections/a b/%2F?中/disconnect");
}

TEST(AuthorizationRequest, HasItsMembersInOrderWithoutBlanks) {
  settings::Settings settings;
  settings.deviceNumber = L"D-100";
  settings.deviceSecret = L"key";
  settings.targetNetwork = L"ALL";
  settings.engineerId = L"ENG-12345678";

  EXPECT_EQ(AuthorizationBody(settings),
            LR"({"deviceNumber":"D-100","deviceSecret":"key","targetNetwork":"ALL",)"
            LR"("engineerId":"ENG-12345678","clientPublicKey":""})");
}

TEST(AuthorizationRequest, EscapesTheEngineersInput) {
  settings::Settings settings;
  settings.deviceSecret = L"a\"b\\c\td\r\ne中\x0001";

  EXPECT_EQ(AuthorizationBody(settings),
            L"{\"deviceNumber\":\"\",\"deviceSecret\":\"a\\\"b\\\\c\\td\\r\\ne中\x0001\","
            L"\"targetNetwork\":\"\",\"engineerId\":\"\",\"clientPublicKey\":\"\"}");
}

TEST(DisconnectRequest, NamesEngineerAndReason) {
  EXPECT_EQ(DisconnectBody(L"ENG-12345678", kReasonEndedHere),
            LR"({"engineerId":"ENG-12345678","reason":"本地客户端断开连接"})");
  EXPECT_EQ(DisconnectBody(L"a\"b", kReasonTunnelFailed),
            LR"({"engineerId":"a\"b","reason":"本地隧道启动失败"})");
}

TEST(ConnectionGrant, KeepsTheRoutesThatAreStringsInTheirOrder) {
  const ConnectionGrant grant = ReadConnectionGrant(settings::ReadJsonDocument(
      LR"({"connectionId":"c1","assignedAddress":"10.8.0.2",)"
      LR"("routes":["192.168.1.0/24",7,"10.0.0.0/8",null,["172.16.0.0/12"],true]})"));

  EXPECT_EQ(grant.connectionId, L"c1");
  EXPECT_EQ(grant.assignedAddress, L"10.8.0.2");
  EXPECT_EQ(grant.routes, (std::vector<std::wstring>{L"192.168.1.0/24", L"10.0.0.0/8"}));
}

TEST(ConnectionGrant, NeedsIdAddressAndAtLeastOneRoute) {
  const std::wstring_view incomplete[] = {
      LR"({})",
      LR"(null)",
      LR"([])",
      LR"("text")",
      LR"({"assignedAddress":"10.8.0.2","routes":["10.0.0.0/8"]})",
      LR"({"connectionId":"","assignedAddress":"10.8.0.2","routes":["10.0.0.0/8"]})",
      LR"({"connectionId":7,"assignedAddress":"10.8.0.2","routes":["10.0.0.0/8"]})",
      LR"({"connectionId":"c1","routes":["10.0.0.0/8"]})",
      LR"({"connectionId":"c1","assignedAddress":"","routes":["10.0.0.0/8"]})",
      LR"({"connectionId":"c1","assignedAddress":null,"routes":["10.0.0.0/8"]})",
      LR"({"connectionId":"c1","assignedAddress":"10.8.0.2"})",
      LR"({"connectionId":"c1","assignedAddress":"10.8.0.2","routes":[]})",
      LR"({"connectionId":"c1","assignedAddress":"10.8.0.2","routes":[1,null,{}]})",
      LR"({"connectionId":"c1","assignedAddress":"10.8.0.2","routes":"10.0.0.0/8"})",
      LR"({"connectionId":"c1","assignedAddress":"10.8.0.2","routes":{"0":"10.0.0.0/8"}})",
  };
  for (const std::wstring_view data : incomplete) {
    EXPECT_EQ(GrantFailure(data), kIncomplete) << std::string(data.begin(), data.end());
  }
}

}  // namespace
}  // namespace service
