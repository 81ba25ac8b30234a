#include "remote/rustdesk_files.h"

#include <gtest/gtest.h>

#include "remote/fake_computer.h"

namespace remote {
namespace {

RustDeskServer Server(const wchar_t* rendezvous, const wchar_t* relay, const wchar_t* api,
                      const wchar_t* key) {
  return {rendezvous, relay, api, key, L"http://unused"};
}

TEST(ComposeRustDeskConfig, ContainsEveryServerLineByLine) {
  EXPECT_EQ(
      ComposeRustDeskConfig(Server(L"id.example:21116", L"relay.example", L"http://api", L"K=")),
      L"rendezvous_server = 'id.example:21116'\n"
      L"\n"
      L"[options]\n"
      L"custom-rendezvous-server = 'id.example:21116'\n"
      L"relay-server = 'relay.example'\n"
      L"key = 'K='\n"
      L"api-server = 'http://api'\n");
}

TEST(ComposeRustDeskConfig, KeepsEmptyRelayAndKeyAndOmitsAnEmptyApi) {
  EXPECT_EQ(ComposeRustDeskConfig(Server(L"r", L"", L"", L"")),
            L"rendezvous_server = 'r'\n\n[options]\ncustom-rendezvous-server = 'r'\n"
            L"relay-server = ''\nkey = ''\n");
}

TEST(ComposeRustDeskConfig, PutsABackslashBeforeQuotesAndBackslashesOfEachValue) {
  EXPECT_EQ(ComposeRustDeskConfig(Server(L"a'b", L"c\\d", L"\\'", L"'\"'")),
            L"rendezvous_server = 'a\\'b'\n\n[options]\ncustom-rendezvous-server = 'a\\'b'\n"
            L"relay-server = 'c\\\\d'\nkey = '\\'\"\\''\napi-server = '\\\\\\''\n");
}

TEST(ComposeRustDeskConfig, IsEmptyWithoutARendezvousServer) {
  EXPECT_EQ(ComposeRustDeskConfig(Server(L"", L"relay", L"api", L"key")), std::nullopt);
}

class RustDeskConfigTest : public testing::Test {
 protected:
  RustDeskConfigTest() { computer_.users = {L"Public", L"LI", L"wang"}; }
  void Configure(const RustDeskServer& server) { ConfigureRustDesk(server, computer_); }

  const std::wstring ours_ = L"C:\\Users\\li\\AppData\\Roaming\\RustDesk\\config\\RustDesk2.toml";
  const std::wstring publics_ =
      L"C:\\Users\\Public\\AppData\\Roaming\\RustDesk\\config\\RustDesk2.toml";
  const std::wstring wangs_ =
      L"C:\\Users\\wang\\AppData\\Roaming\\RustDesk\\config\\RustDesk2.toml";
  FakeComputer computer_;
};

TEST_F(RustDeskConfigTest, ListsTheUsersOnTheDriveOfWindows) {
  const std::vector<std::wstring> files = ListRustDeskConfigFiles(computer_);
  ASSERT_EQ(files.size(), 5U);
  EXPECT_EQ(files[0], ours_);
  EXPECT_EQ(files[1], publics_);
  EXPECT_EQ(files[2], wangs_);
  computer_.folders.windows = L"E:\\Windows";
  EXPECT_EQ(ListRustDeskConfigFiles(computer_).size(), 3U);
}

TEST_F(RustDeskConfigTest, WritesEveryFileIntoAFolderOfItsOwn) {
  Configure(Server(L"r", L"", L"", L"\x5BC6\x94A5 \xD83D\xDE00"));
  ASSERT_EQ(computer_.written.size(), 5U);
  for (const auto& [path, bytes] : computer_.written) {
    EXPECT_EQ(bytes,
              "rendezvous_server = 'r'\n\n[options]\ncustom-rendezvous-server = 'r'\n"
              "relay-server = ''\nkey = '\xE5\xAF\x86\xE9\x92\xA5 \xF0\x9F\x98\x80'\n");
  }
  EXPECT_EQ(computer_.events.at(0), L"mkdir C:\\Users\\li\\AppData\\Roaming\\RustDesk\\config");
  EXPECT_EQ(computer_.events.at(1), L"write " + ours_);
}

TEST_F(RustDeskConfigTest, SkipsFilesThatCannotBeWritten) {
  computer_.throwsAt = ours_;
  computer_.refusesAt = wangs_;
  Configure(Server(L"r", L"", L"", L""));
  EXPECT_EQ(computer_.written.size(), 3U);
  EXPECT_EQ(computer_.written.count(publics_), 1U);
  EXPECT_TRUE(computer_.events.back().ends_with(
      L"write C:\\Windows\\ServiceProfiles\\LocalSystem\\AppData\\Roaming\\RustDesk\\config\\"
      L"RustDesk2.toml"));
}

TEST_F(RustDeskConfigTest, TouchesNothingWithoutARendezvousServer) {
  Configure(Server(L"", L"relay", L"api", L"key"));
  EXPECT_EQ(computer_.events, Events{});
}

}  // namespace
}  // namespace remote
