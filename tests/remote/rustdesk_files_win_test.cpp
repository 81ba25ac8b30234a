#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "platform/files.h"
#include "platform/handles_win.h"
#include "platform/path.h"
#include "remote/rustdesk_program.h"
#include "settings/settings_file.h"
#include "text/strings.h"

namespace remote {
namespace {

using Paths = std::vector<std::wstring>;

// The computer's own files. Every test restores them.
class RealFiles : public testing::Test {
 protected:
  ~RealFiles() override {
    for (const auto& [path, bytes] : before_) {
      ::SetFileAttributesW(path.c_str(), FILE_ATTRIBUTE_NORMAL);
      if (bytes) platform::WriteFileBytes(path, *bytes);
    }
    std::error_code error;
    for (const std::wstring& path : made_) std::filesystem::remove_all(path, error);
  }

  // Restores the file at `path`, which a test is about to write, afterwards.
  void Keep(const std::wstring& path) {
    before_[path] = platform::ReadFileBytes(path);
    std::wstring highestMissing;
    for (std::wstring step = path; !std::filesystem::exists(step);
         step = platform::ParentFolder(step)) {
      highestMissing = step;
    }
    if (!highestMissing.empty()) made_.push_back(highestMissing);
  }

  RealRemoteDesktopDeps deps_{MakePasswordKeeper(), {}, {}};
  const RustDeskFolders& folders_ = deps_.folders;

 private:
  std::map<std::wstring, std::optional<std::string>> before_;
  Paths made_;
};

class RealConfigFiles : public RealFiles {
 protected:
  RealConfigFiles() : files_(ListRustDeskConfigFiles(deps_)) {
    for (const std::wstring& path : files_) Keep(path);
    server_.rendezvousServer = L"id.现场.example";
    server_.key = L"K'";
  }

  const Paths files_;
  RustDeskServer server_;
  const std::string expected_ =
      "rendezvous_server = 'id.\xE7\x8E\xB0\xE5\x9C\xBA.example'\n\n[options]\n"
      "custom-rendezvous-server = 'id.\xE7\x8E\xB0\xE5\x9C\xBA.example'\n"
      "relay-server = ''\nkey = 'K\\''\n";
};

TEST_F(RealFiles, FoldersAreThoseOfThisComputer) {
  EXPECT_EQ(folders_.programFiles, platform::ProgramFilesFolder());
  EXPECT_EQ(folders_.programFilesX86, platform::ProgramFilesX86Folder());
  EXPECT_EQ(folders_.localAppData, platform::LocalAppDataFolder());
  EXPECT_EQ(folders_.roamingAppData, platform::RoamingAppDataFolder());
  EXPECT_EQ(folders_.program, platform::ProgramFolder());
  EXPECT_EQ(folders_.runtime, settings::RuntimeFolder());
  EXPECT_EQ(folders_.windows, platform::WindowsFolder());
}

TEST_F(RealConfigFiles, AreThoseOfEveryProfileFolder) {
  const std::wstring end = L"\\AppData\\Roaming\\RustDesk\\config\\RustDesk2.toml";
  const std::wstring users = folders_.windows.substr(0, 3) + L"Users";
  std::size_t profiles = 0;
  for (const auto& entry : std::filesystem::directory_iterator(users)) {
    if (!entry.is_directory()) continue;
    ++profiles;
    const std::wstring wanted = users + L"\\" + entry.path().filename().wstring() + end;
    const auto isWanted = [&](const std::wstring& file) {
      return text::EqualsIgnoreCase(file, wanted);
    };
    EXPECT_EQ(std::ranges::count_if(files_, isWanted), 1) << profiles;
  }
  EXPECT_GE(profiles, 2U) << "nobody but the engineer";
  EXPECT_EQ(files_.size(), profiles + 2) << "the engineer's own is among them";
  EXPECT_EQ(files_.back(), folders_.windows + L"\\ServiceProfiles\\LocalSystem" + end);
}

TEST_F(RealConfigFiles, AreWrittenByteForByteWhateverTheyHeld) {
  platform::CreateFolders(platform::ParentFolder(files_[1]));
  platform::WriteFileBytes(files_[1], std::string(5000, 'x'));
  ConfigureRustDesk(server_, deps_);
  for (const std::wstring& path : files_) EXPECT_EQ(platform::ReadFileBytes(path), expected_);
}

TEST_F(RealConfigFiles, AreLeftAsTheyAreWithoutARendezvousServer) {
  platform::CreateFolders(platform::ParentFolder(files_[0]));
  platform::WriteFileBytes(files_[0], "kept");
  server_.rendezvousServer.clear();
  ConfigureRustDesk(server_, deps_);
  EXPECT_EQ(platform::ReadFileBytes(files_[0]), "kept");
}

TEST_F(RealConfigFiles, AreWrittenBesideOneThatIsHeld) {
  platform::CreateFolders(platform::ParentFolder(files_[1]));
  platform::WriteFileBytes(files_[1], "held");
  {
    const platform::FileHandle holder(::CreateFileW(files_[1].c_str(), GENERIC_READ,
                                                    FILE_SHARE_READ, nullptr, OPEN_EXISTING,
                                                    FILE_ATTRIBUTE_NORMAL, nullptr));
    ASSERT_TRUE(holder);
    ConfigureRustDesk(server_, deps_);
  }
  EXPECT_EQ(platform::ReadFileBytes(files_[1]), "held");
  EXPECT_EQ(platform::ReadFileBytes(files_[0]), expected_);
  EXPECT_EQ(platform::ReadFileBytes(files_[2]), expected_);
}

// Systems differ in whether they write the read-only file.
TEST_F(RealConfigFiles, AreWrittenBesideAReadOnlyOne) {
  platform::CreateFolders(platform::ParentFolder(files_[1]));
  platform::WriteFileBytes(files_[1], "read-only");
  ASSERT_TRUE(::SetFileAttributesW(files_[1].c_str(), FILE_ATTRIBUTE_READONLY));
  ConfigureRustDesk(server_, deps_);
  EXPECT_EQ(platform::ReadFileBytes(files_[0]), expected_);
  EXPECT_EQ(platform::ReadFileBytes(files_[2]), expected_);
}

TEST_F(RealConfigFiles, AreWrittenBesideAFolderOfTheSameName) {
  ASSERT_TRUE(platform::CreateFolders(files_[1]));
  ConfigureRustDesk(server_, deps_);
  EXPECT_TRUE(std::filesystem::is_directory(files_[1]));
  EXPECT_EQ(platform::ReadFileBytes(files_[0]), expected_);
  EXPECT_EQ(platform::ReadFileBytes(files_[2]), expected_);
}

TEST_F(RealFiles, AProgramIsAFileNotAFolder) {
  const std::wstring place = platform::JoinPath(folders_.program, L"Runtime\\rustdesk.exe");
  Keep(place);
  settings::Settings settings;
  ASSERT_TRUE(platform::CreateFolders(place));
  EXPECT_EQ(FindRustDesk(settings, nullptr, deps_), L"");
  std::filesystem::remove(place);
  ASSERT_TRUE(platform::WriteFileBytes(place, ""));
  EXPECT_EQ(FindRustDesk(settings, nullptr, deps_), place);
}

}  // namespace
}  // namespace remote
