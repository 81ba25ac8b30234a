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

TEST(DesktopSessionRequest, NeedsNoDeviceNumber) {
  settings::Settings settings;
  settings.serverUrl = L"http://h";
  EXPECT_EQ(DesktopSessionUrl(settings), L"http://h/api/devices//remote-desktop/session");
  EXPECT_EQ(DesktopSessionBody(settings),
            L"{\"deviceNumber\":\"\",\"deviceSecret\":\"\",\"engineerId\":\"\"}");
}

TEST(DesktopSession, TakesWhatHasTheRightKind) {
  const DesktopSession all = ReadDesktopSession(settings::ReadJsonDocument(
      LR"({"rustDeskId":"123","accessPassword":"p","server":{"key":"k"}})"));
  EXPECT_EQ(all.rustDeskId, L"123");
  EXPECT_EQ(all.accessPassword, L"p");
  ASSERT_TRUE(all.server);
  EXPECT_EQ(all.server->key, L"k");
  const DesktopSession empty = ReadDesktopSession(settings::ReadJsonDocument(L"{\"server\":{}}"));
  EXPECT_TRUE(empty.server);
}

TEST(DesktopSession, IsEmptyOfWhatIsMissingOrOfAnotherKind) {
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

TEST(RustDeskTitle, IsOneWithTheIdOrTheProgramsName) {
  const std::wstring longTitle = std::wstring(5000, L'x') + L"987" + std::wstring(5000, L'x');
  const struct {
    std::wstring title;
    std::wstring id;
    bool matches;
  } rows[] = {
      {L"987", L"987", true},
      {L"Notes on 987.txt", L"987", true},
      {longTitle, L"987", true},
      {L"98", L"987", false},
      {L"9 8 7", L"987", false},
      {L"device ABC", L"ABC", true},
      {L"device abc", L"ABC", false},
      {L"RustDesk", L"987", true},
      {L"RustDesk", L"", true},
      {L"远程 - rustDESK 1.2", L"987", true},
      {L"x" + std::wstring(5000, L' ') + L"RUSTDESK", L"", true},
      {L"RustDes", L"987", false},
      {L"Rust", L"", false},
      {L"Rust Desk", L"", false},
      {L"", L"987", false},
      {L"", L"", false},
      {L"Notes", L"", false},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(IsRustDeskTitle(row.title, row.id), row.matches)
        << testing::PrintToString(row.title.substr(0, 40)) << testing::PrintToString(row.id);
  }
}

TEST(DesktopOpenedText, SaysWhatBecameOfThePassword) {
  EXPECT_EQ(DesktopOpenedText(L"123", PasswordCopy::Done),
            L"远程桌面已打开：123，访问密码已复制。");
  EXPECT_EQ(DesktopOpenedText(L"123", PasswordCopy::Failed),
            L"远程桌面已打开：123，访问密码复制失败，请手动复制。");
  EXPECT_EQ(DesktopOpenedText(L"123", PasswordCopy::None), L"远程桌面已打开：123。");
  EXPECT_EQ(DesktopOpenedText(L"", PasswordCopy::None), L"远程桌面已打开：。");
}

}  // namespace
}  // namespace remote
