#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <vector>

#include "service/connection_fixture.h"

namespace service {
namespace {

// Authorising and disconnecting, each alone.
class ConnectionCalls : public ConnectionTest {};

TEST_F(ConnectionCalls, AuthorizingPostsTheRequestBody) {
  world_.Answer(kGrant);
  Authorize();

  ASSERT_EQ(world_.requests.size(), 1u);
  EXPECT_EQ(world_.requests.at(0).method, L"POST");
  EXPECT_EQ(world_.requests.at(0).url, kRequestUrl);
  EXPECT_EQ(world_.requests.at(0).body,
            LR"({"deviceNumber":"D-100","deviceSecret":"key","targetNetwork":"192.168.1.0/24",)"
            LR"("engineerId":"ENG-12345678","clientPublicKey":""})");
}

TEST_F(ConnectionCalls, AuthorizingStoresAndSavesTheGrant) {
  settings_.heartbeatMessage = L"DEVICE_OFFLINE";
  world_.Answer(kGrant);

  EXPECT_EQ(Authorize(), kGrantText);

  EXPECT_EQ(settings_.connectionId, L"c1");
  EXPECT_EQ(settings_.assignedAddress, L"10.8.0.2");
  EXPECT_EQ(settings_.routesText, L"192.168.1.0/24\r\n10.0.0.0/8");
  EXPECT_EQ(settings_.heartbeatMessage, L"");
  EXPECT_EQ(settings_.deviceNumber, L"D-100");
  EXPECT_EQ(settings_.targetNetwork, L"192.168.1.0/24");
  EXPECT_EQ(world_.LastSaved().connectionId, L"c1");
  EXPECT_EQ(world_.LastSaved().heartbeatMessage, L"");
  const settings::GrantedConnection granted = {
      L"c1", L"http://192.0.2.10:31080", L"ENG-12345678", {L"192.168.1.0/24", L"10.0.0.0/8"}};
  EXPECT_EQ(settings_.granted, granted);
  EXPECT_EQ(world_.LastSaved().granted, granted);
}

// If the program ends while the list is edited, the next run must find the routes.
TEST_F(ConnectionCalls, AuthorizingSavesBeforeTheProxyBypassGetsTheRoutes) {
  world_.addText = L"已加入系统代理旁路：10.*";
  world_.Answer(kGrant);

  EXPECT_EQ(Authorize(), kGrantText) << "the bypass's own line is not shown";

  EXPECT_EQ(world_.events, (Events{std::wstring(L"POST ") + kRequestUrl, L"save",
                                   L"bypass+ 192.168.1.0/24 10.0.0.0/8"}));
  EXPECT_EQ(world_.saved.at(0).routesText, L"192.168.1.0/24\r\n10.0.0.0/8");
}

TEST_F(ConnectionCalls, AuthorizingReadsDeviceNumberAndTargetOnlyFromStrings) {
  world_.Answer(
      LR"({"success":true,"data":{"connectionId":"c1","assignedAddress":"10.8.0.2",)"
      LR"("routes":["10.0.0.0/8"],"deviceNumber":"D-200","targetNetwork":7}})");
  Authorize();
  EXPECT_EQ(settings_.deviceNumber, L"D-200");
  EXPECT_EQ(settings_.targetNetwork, L"192.168.1.0/24");

  world_.Answer(
      LR"({"success":true,"data":{"connectionId":"c1","assignedAddress":"10.8.0.2",)"
      LR"("routes":["10.0.0.0/8"],"deviceNumber":null,"targetNetwork":""}})");
  Authorize();
  EXPECT_EQ(settings_.deviceNumber, L"D-200");
  EXPECT_EQ(settings_.targetNetwork, L"") << "an empty string is a string";
}

TEST_F(ConnectionCalls, AuthorizingWithoutAnEngineerSendsAndKeepsANewId) {
  settings_.engineerId.clear();
  world_.Answer(kGrant);
  Authorize();

  ASSERT_EQ(settings_.engineerId.size(), 12u);
  EXPECT_EQ(settings_.engineerId.substr(0, 4), L"ENG-");
  EXPECT_NE(world_.requests.at(0).body.find(L"\"engineerId\":\"" + settings_.engineerId + L"\""),
            std::wstring::npos);
  EXPECT_EQ(world_.LastSaved().engineerId, settings_.engineerId);
}

TEST_F(ConnectionCalls, ARefusalLeavesItsCodeAndChangesNothingElse) {
  settings_.heartbeatMessage = L"OLD";
  world_.Answer(LR"({"success":false,"code":"DEVICE_OFFLINE","message":"offline"})", 403);

  EXPECT_EQ(Authorize(), L"Connection authorization failed: offline");

  EXPECT_EQ(settings_.heartbeatMessage, L"DEVICE_OFFLINE");
  EXPECT_EQ(settings_.connectionId, L"");
  EXPECT_EQ(settings_.targetNetwork, L"192.168.1.0/24");
  ASSERT_EQ(world_.saved.size(), 1u);
  EXPECT_EQ(world_.saved.at(0).heartbeatMessage, L"DEVICE_OFFLINE");
  EXPECT_EQ(world_.LastEvent(), L"save") << "no proxy edit";
}

TEST_F(ConnectionCalls, ARefusalWithDataGrantsNothing) {
  world_.Answer(
      LR"({"success":"true","data":{"connectionId":"c1","assignedAddress":"10.8.0.2",)"
      LR"("routes":["10.0.0.0/8"]}})");

  EXPECT_EQ(Authorize(), L"Connection authorization failed: ");
  EXPECT_EQ(settings_.connectionId, L"");
}

TEST_F(ConnectionCalls, AnHtmlErrorPageIsARefusalWithoutMessage) {
  settings_.heartbeatMessage = L"DEVICE_OFFLINE";
  world_.Answer(L"<html>502</html>", 502);

  EXPECT_EQ(Authorize(), L"Connection authorization failed: ");
  EXPECT_EQ(settings_.heartbeatMessage, L"") << "no code, so no retry";
}

TEST_F(ConnectionCalls, AnIncompleteGrantThrowsAndChangesOnlyTheEngineer) {
  settings_.engineerId.clear();
  settings_.heartbeatMessage = L"DEVICE_OFFLINE";
  const settings::Settings before = settings_;
  world_.Answer(
      LR"({"success":true,"data":{"connectionId":"c1","assignedAddress":"10.8.0.2",)"
      LR"("routes":[],"deviceNumber":"D-200"}})");

  EXPECT_EQ(FailureOf([this] { Authorize(); }),
            "Connection authorization response is missing connectionId, assignedAddress, or "
            "routes.");

  EXPECT_NE(settings_.engineerId, L"");
  settings_.engineerId.clear();
  EXPECT_EQ(settings::WriteSettingsText(settings_), settings::WriteSettingsText(before));
}

TEST_F(ConnectionCalls, AuthorizingThrowsTransportFailuresAndMalformedReplies) {
  world_.FailRequest("WinHttpReceiveResponse failed.");
  EXPECT_EQ(FailureOf([this] { Authorize(); }), "WinHttpReceiveResponse failed.");
  world_.Answer(L"{\"success\":true,");
  EXPECT_EQ(FailureOf([this] { Authorize(); }), "Invalid JSON.");
  EXPECT_EQ(settings_.connectionId, L"");
}

TEST_F(ConnectionCalls, DisconnectingReportsTheEndAndForgets) {
  HoldConnection();
  world_.Answer(LR"({"success":true})");

  EXPECT_EQ(Disconnect(), L"\r\n远程调试会话已断开。");

  ASSERT_EQ(world_.requests.size(), 1u);
  EXPECT_EQ(world_.requests.at(0).body,
            LR"({"engineerId":"ENG-12345678","reason":"本地客户端断开连接"})");
  EXPECT_EQ(world_.events, (Events{L"POST http://192.0.2.10:31080/api/connections/old/disconnect",
                                   L"bypass- 10.1.0.0/16 10.2.0.0/16", L"save"}));
  ExpectForgotten(settings_);
  ExpectForgotten(world_.LastSaved());
}

TEST_F(ConnectionCalls, DisconnectingWithoutAConnectionSendsNothingButStillForgets) {
  HoldConnection();
  settings_.connectionId.clear();

  EXPECT_EQ(Disconnect(), L"");

  EXPECT_EQ(world_.events, (Events{L"bypass- 10.1.0.0/16 10.2.0.0/16", L"save"}));
  ExpectForgotten(settings_);
}

// While connected, another site's profile was loaded, and perhaps the program restarted.
TEST_F(ConnectionCalls, DisconnectingUsesTheGrantWhateverIsInTheForm) {
  HoldConnection();
  settings_.granted = {L"old", L"http://granted:1", L"ENG-87654321", {L"10.1.0.0/16"}};
  settings_.serverUrl = L"http://loaded:1";
  settings_.routesText = L"172.16.0.0/12";
  world_.Answer(LR"({"success":true})");

  EXPECT_EQ(Disconnect(), L"\r\n远程调试会话已断开。");

  EXPECT_EQ(world_.events, (Events{L"POST http://granted:1/api/connections/old/disconnect",
                                   L"bypass- 10.1.0.0/16", L"save"}));
  EXPECT_NE(world_.requests.at(0).body.find(L"ENG-87654321"), std::wstring::npos);
  ExpectForgotten(settings_);
  EXPECT_EQ(settings_.granted, settings::GrantedConnection());
  EXPECT_EQ(settings_.serverUrl, L"http://loaded:1");
}

TEST_F(ConnectionCalls, DisconnectingShowsTheMessageOfARefusal) {
  HoldConnection();
  world_.Answer(LR"({"success":false,"message":"unknown connection"})", 404);

  EXPECT_EQ(Disconnect(), L"\r\n会话断开上报失败：unknown connection");
  ExpectForgotten(settings_);
}

TEST_F(ConnectionCalls, DisconnectingAppendsTheProxyBypasssLine) {
  HoldConnection();
  world_.removeText = L"已移除系统代理旁路：10.1.*";
  world_.Answer(LR"({"success":true})");

  EXPECT_EQ(Disconnect(), L"\r\n远程调试会话已断开。\r\n已移除系统代理旁路：10.1.*");

  EXPECT_EQ(Disconnect(), L"\r\n已移除系统代理旁路：10.1.*");
}

TEST_F(ConnectionCalls, DisconnectingForgetsEvenWhenNoReplyArrives) {
  HoldConnection();
  world_.FailRequest("WinHttpReceiveResponse failed.");

  EXPECT_EQ(FailureOf([this] { Disconnect(); }), "WinHttpReceiveResponse failed.");

  ExpectForgotten(settings_);
  ExpectForgotten(world_.LastSaved());
  EXPECT_EQ(world_.events.at(1), L"bypass- 10.1.0.0/16 10.2.0.0/16");
}

TEST_F(ConnectionCalls, DisconnectingForgetsEvenWhenTheReplyIsMalformed) {
  HoldConnection();
  world_.Answer(L"{\"success\":\"");

  EXPECT_EQ(FailureOf([this] { Disconnect(); }), "Invalid JSON string.");
  ExpectForgotten(settings_);
}

}  // namespace
}  // namespace service
