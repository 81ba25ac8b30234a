#include "remote/rustdesk_program.h"

#include <gtest/gtest.h>

#include "remote/fake_computer.h"

namespace remote {
namespace {

constexpr std::uint64_t kMebibyte = 1'048'576;
constexpr wchar_t kRuntime[] = L"C:\\Users\\li\\Local\\Velmarine\\Runtime";
const std::wstring kTarget = std::wstring(kRuntime) + L"\\rustdesk.exe";
const std::wstring kInstalled = L"C:\\PF\\RustDesk\\rustdesk.exe";
const Events kPrepared = {std::wstring(L"mkdir ") + kRuntime, L"delete " + kTarget + L".download"};

Events PreparedAnd(const Events& more) {
  Events events = kPrepared;
  events.insert(events.end(), more.begin(), more.end());
  return events;
}

class RustDeskProgramTest : public testing::Test {
 protected:
  RustDeskProgramTest() {
    settings_.serverUrl = L" h:1/ ";
    server_.windowsDownloadUrl = L"files/rd.exe";
  }
  std::wstring Find() { return FindRustDesk(settings_, &server_, computer_); }
  std::wstring Download(const RustDeskServer* server) {
    return DownloadRustDesk(settings_, server, computer_);
  }

  FakeComputer computer_;
  settings::Settings settings_;
  RustDeskServer server_;
};

TEST_F(RustDeskProgramTest, TheSavedProgramComesFirst) {
  settings_.rustDeskPath = L"F:\\my\\rd.exe";
  computer_.files = {{L"F:\\my\\rd.exe", 0}, {kInstalled, 5}};
  EXPECT_EQ(Find(), L"F:\\my\\rd.exe");
  EXPECT_EQ(computer_.events, Events{});
}

TEST_F(RustDeskProgramTest, AMissingSavedProgramIsSearchedElsewhere) {
  settings_.rustDeskPath = L"F:\\my\\rd.exe";
  computer_.files = {{kInstalled, 5}};
  EXPECT_EQ(Find(), kInstalled);
  EXPECT_EQ(settings_.rustDeskPath, L"F:\\my\\rd.exe");
  EXPECT_EQ(computer_.events, Events{});
}

TEST_F(RustDeskProgramTest, EachPlacePrecedesTheNext) {
  const std::vector<std::wstring> candidates = RustDeskCandidates(computer_.folders);
  ASSERT_EQ(candidates.size(), 9U);
  for (auto candidate = candidates.rbegin(); candidate != candidates.rend(); ++candidate) {
    computer_.files[*candidate] = 0;
    EXPECT_EQ(Find(), *candidate);
  }
  EXPECT_EQ(computer_.events, Events{});
}

TEST_F(RustDeskProgramTest, InstalledProgramsPrecedeASavedOneInTheRuntimeFolder) {
  const std::wstring spellings[] = {kTarget,
                                    L"c:\\USERS\\Li\\local\\VELMARINE\\runtime\\RustDesk.EXE",
                                    L"C:\\Users\\li\\Local\\Velmarine\\Runtime\\older\\rd.exe"};
  for (const std::wstring& saved : spellings) {
    computer_.events.clear();
    settings_.rustDeskPath = saved;
    computer_.files = {{saved, kMebibyte + 1}, {kInstalled, 5}};
    EXPECT_EQ(Find(), kInstalled) << computer_.events.size();
    computer_.files.erase(kInstalled);
    EXPECT_EQ(Find(), saved);
    EXPECT_EQ(computer_.events, kPrepared) << "without asking the network, without saving";
  }
}

TEST_F(RustDeskProgramTest, DownloadsFromTheServicesUrl) {
  const struct {
    const wchar_t* url;
    std::wstring event;
  } rows[] = {
      {L"https://cdn.example/rd.exe?v=1", L"get https://cdn.example/rd.exe?v=1 to " + kTarget},
      {L"/files/rd.exe", L"get http://h:1/files/rd.exe to " + kTarget},
      {L"files/rd.exe", L"get http://h:1/files/rd.exe to " + kTarget},
  };
  for (const auto& row : rows) {
    computer_.files.clear();
    computer_.events.clear();
    settings_.rustDeskPath = L"F:\\gone.exe";
    server_.windowsDownloadUrl = row.url;
    computer_.downloadBytes = kMebibyte + 1;
    EXPECT_EQ(Find(), kTarget);
    EXPECT_EQ(settings_.rustDeskPath, kTarget);
    EXPECT_EQ(computer_.events, PreparedAnd({row.event}));
  }
}

TEST_F(RustDeskProgramTest, ADownloadOfOneMebibyteOrLessFailsAndRemains) {
  for (const std::uint64_t bytes : {std::uint64_t{0}, std::uint64_t{1}, kMebibyte}) {
    computer_.files.clear();
    computer_.downloadBytes = bytes;
    EXPECT_EQ(Download(&server_), L"") << bytes;
    EXPECT_EQ(settings_.rustDeskPath, L"");
    EXPECT_EQ(computer_.files.count(kTarget), 1U);
  }
}

TEST_F(RustDeskProgramTest, AnEarlierDownloadReplacesAFailedOne) {
  EXPECT_EQ(Download(&server_), L"");
  EXPECT_EQ(settings_.rustDeskPath, L"");
  computer_.files = {{kTarget, kMebibyte + 1}};
  EXPECT_EQ(Download(&server_), kTarget);
  EXPECT_EQ(settings_.rustDeskPath, kTarget);
}

TEST_F(RustDeskProgramTest, ASavedProgramOfOneMebibyteIsDownloadedAgain) {
  settings_.rustDeskPath = kTarget;
  computer_.files = {{kTarget, kMebibyte}};
  computer_.downloadBytes = 3 * kMebibyte;
  EXPECT_EQ(Download(&server_), kTarget);
  computer_.events.clear();
  EXPECT_EQ(Download(&server_), kTarget);
  EXPECT_EQ(computer_.events, kPrepared) << "now it is large enough";
}

TEST_F(RustDeskProgramTest, ALargeSavedProgramIsNotDownloadedAgain) {
  settings_.rustDeskPath = L"F:\\my\\rd.exe";
  computer_.files = {{L"F:\\my\\rd.exe", kMebibyte + 1}};
  EXPECT_EQ(Download(&server_), L"F:\\my\\rd.exe");
  EXPECT_EQ(Download(nullptr), L"F:\\my\\rd.exe");
}

TEST_F(RustDeskProgramTest, WithoutAServerOrAnAddressNothingIsDownloaded) {
  computer_.downloadBytes = kMebibyte + 1;
  EXPECT_EQ(FindRustDesk(settings_, nullptr, computer_), L"");
  EXPECT_EQ(computer_.events, kPrepared);
  computer_.events.clear();
  server_.windowsDownloadUrl.clear();
  EXPECT_EQ(Find(), L"");
  EXPECT_EQ(computer_.events, kPrepared);
}

}  // namespace
}  // namespace remote
