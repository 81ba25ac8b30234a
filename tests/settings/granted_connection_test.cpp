#include "settings/settings.h"

#include <gtest/gtest.h>

namespace settings {
namespace {

const GrantedConnection kGranted = {
    L"c1", L"http://granted:1", L"ENG-1", {L"10.1.0.0/16", L"10.2.0.0/16"}};

Settings Held() {
  Settings settings;
  settings.connectionId = L"c1";
  settings.serverUrl = L"http://loaded:1";
  settings.engineerId = L"ENG-2";
  settings.routesText = L"172.16.0.0/12\r\n192.168.0.0/16";
  return settings;
}

GrantedConnection ReadGrant(const std::wstring& text) {
  return ReadGrantedConnection(ReadJsonDocument(text));
}

TEST(ConnectionInForce, IsTheGrantWhateverTheOtherFieldsContain) {
  Settings settings = Held();
  settings.granted = kGranted;
  EXPECT_EQ(ConnectionInForce(settings), kGranted);
}

TEST(ConnectionInForce, ComesFromTheOtherFieldsWithoutItsGrant) {
  const GrantedConnection stored = {
      L"c1", L"http://loaded:1", L"ENG-2", {L"172.16.0.0/12", L"192.168.0.0/16"}};
  Settings settings = Held();
  EXPECT_EQ(ConnectionInForce(settings), stored);
  settings.granted = kGranted;
  settings.granted.connectionId = L"c0";
  EXPECT_EQ(ConnectionInForce(settings), stored) << "the grant of another connection";
}

TEST(ConnectionInForce, HasNoIdWithoutAConnection) {
  Settings settings = Held();
  settings.connectionId.clear();
  EXPECT_EQ(ConnectionInForce(settings).connectionId, L"");
  EXPECT_EQ(ConnectionInForce(settings).routes.size(), 2u);
}

TEST(GrantedConnectionText, EscapesEveryMember) {
  EXPECT_EQ(WriteGrantedConnection({L"\"1", L"\"2", L"\"3", {L"\"4", L"\\5"}}),
            LR"({"connectionId":"\"1","serverUrl":"\"2","engineerId":"\"3",)"
            LR"("routes":["\"4","\\5"]})"
            L"\n");
}

TEST(GrantedConnectionText, IsOneLineThatReadsBack) {
  EXPECT_EQ(WriteGrantedConnection(kGranted),
            L"{\"connectionId\":\"c1\",\"serverUrl\":\"http://granted:1\",\"engineerId\":\"ENG-1\","
            L"\"routes\":[\"10.1.0.0/16\",\"10.2.0.0/16\"]}\n");
  EXPECT_EQ(ReadGrant(WriteGrantedConnection(kGranted)), kGranted);
  const GrantedConnection odd = {L"a\"b\\", L"", L"\t\x5DE5", {}};
  EXPECT_EQ(ReadGrant(WriteGrantedConnection(odd)), odd);
}

TEST(GrantedConnectionText, IgnoresMembersOfOtherTypes) {
  EXPECT_EQ(ReadGrant(L"{\"connectionId\":5,\"routes\":[1,\"10.0.0.0/8\"]}"),
            (GrantedConnection{L"", L"", L"", {L"10.0.0.0/8"}}));
  EXPECT_EQ(ReadGrant(L"[]"), GrantedConnection());
}

}  // namespace
}  // namespace settings
