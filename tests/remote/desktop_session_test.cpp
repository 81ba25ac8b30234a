#include "remote/desktop_session.h"

#include <gtest/gtest.h>

namespace remote {
namespace {

TEST(DesktopSessionRequest, NamesTheDeviceInPathAndBody) {
  settings::Settings settings;
  settings.serverUrl = L" 192.0.2.10:31080/ ";
  settings.deviceNumber = L"DEV 2\x53F7/a~";
  settings.deviceSecret = L"k\"\\";
  settings.engineerId = L"ENG-12345678";
  EXPECT_EQ(DesktopSessionUrl(settings),
            L"http://192.0.2.10:31080/api/devices/DEV%202%E5%8F%B7%2Fa~/remote-desktop/session");
  EXPECT_EQ(DesktopSessionBody(settings),
            L"{\"deviceNumber\":\"DEV 2\x53F7/a~\",\"deviceSecret\":\"k\\\"\\\\\","
            L"\"engineerId\":\"ENG-12345678\"}");
}

TEST(DesktopSessionRequest, DoesNotNeedADeviceNumber) {
  settings::Settings settings;
  settings.serverUrl = L"http://h";
  EXPECT_EQ(DesktopSessionUrl(settings), L"http://h/api/devices//remote-desktop/session");
  EXPECT_EQ(DesktopSessionBody(settings),
            L"{\"deviceNumber\":\"\",\"deviceSecret\":\"\",\"engineerId\":\"\"}");
}

TEST(DesktopSession, ReadsMembersOfTheRightType) {
  const DesktopSession all = ReadDesktopSession(settings::ReadJsonDocument(
      LR"({"rustDeskId":"123","accessPassword":"p","server":{"key":"k"}})"));
  EXPECT_EQ(all.rustDeskId, L"123");
  EXPECT_EQ(all.accessPassword, L"p");
  ASSERT_TRUE(all.server);
  EXPECT_EQ(all.server->key, L"k");
  const DesktopSession empty = ReadDesktopSession(settings::ReadJsonDocument(L"{\"server\":{}}"));
  EXPECT_TRUE(empty.server);
}

TEST(DesktopSession, TreatsMissingAndMistypedMembersAsEmpty) {
  for (const wchar_t* const json :
       {L"{}", L"null", L"[]", L"7", L"\"text\"",
        LR"({"rustDeskId":1,"accessPassword":null,"server":"x"})",
        LR"({"rustDeskId":{},"accessPassword":["p"],"server":[{"key":"k"}]})",
        LR"({"rustDeskId":true,"accessPassword":2,"server":null})"}) {
    const DesktopSession none = ReadDesktopSession(settings::ReadJsonDocument(json));
    EXPECT_EQ(none.rustDeskId + none.accessPassword, L"") << json;
    EXPECT_FALSE(none.server) << json;
  }
}

TEST(DesktopOpenedText, ReportsWhetherThePasswordWasCopied) {
  EXPECT_EQ(DesktopOpenedText(L"123", PasswordCopy::Done),
            L"远程桌面已打开：123，访问密码已复制。");
  EXPECT_EQ(DesktopOpenedText(L"123", PasswordCopy::Failed),
            L"远程桌面已打开：123，访问密码复制失败，请手动复制。");
  EXPECT_EQ(DesktopOpenedText(L"123", PasswordCopy::None), L"远程桌面已打开：123。");
  EXPECT_EQ(DesktopOpenedText(L"", PasswordCopy::None), L"远程桌面已打开：。");
}

}  // namespace
}  // namespace remote
