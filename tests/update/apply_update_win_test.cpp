#include <gtest/gtest.h>

#include <regex>
#include <vector>

#include "platform/files.h"
#include "platform/handles_win.h"
#include "platform/safe_files.h"
#include "text/strings.h"
#include "text/utf8.h"
#include "update/apply_update.h"
#include "update/update_child.h"
#include "update/update_process_win.h"

namespace update {
namespace {

using Texts = std::vector<std::wstring>;

// The shipped program, started to replace another one, with a temporary and a working folder of the
// test's own.
class ApplyUpdateMode : public testing::Test {
 protected:
  ApplyUpdateMode() {
    for (const std::wstring& folder : {temp_, workFolder_, tools_}) {
      EXPECT_TRUE(platform::CreateFolders(folder));
    }
    EXPECT_TRUE(platform::CopyFileOver(UpdateChildPath(), source_).succeeded);
    EXPECT_TRUE(platform::WriteFileBytes(destination_, kOld));
  }

  // With "--apply-update" and further arguments, in the program's folder.
  [[nodiscard]] std::wstring CommandLine(const std::wstring& parent, const std::wstring& source,
                                         const std::wstring& destination) const {
    return QuoteArgument(ClientPath()) + L" --Apply-Update " + QuoteArgument(parent) + L" " +
           QuoteArgument(source) + L" " + QuoteArgument(destination);
  }
  std::optional<int> Apply(const std::wstring& source, const std::wstring& destination,
                           const std::wstring& parent = L"0") {
    const TemporaryFolderScope temporary(temp_);
    const TestProcess process(CommandLine(parent, source, destination), workFolder_);
    return process.ExitCode();
  }

  // The update log without its times; their format is checked.
  [[nodiscard]] Texts Log() const {
    std::string bytes = platform::ReadFileBytes(temp_ + L"\\Velmarine.Update.log").value_or("");
    EXPECT_EQ(bytes.substr(0, 3), "\xEF\xBB\xBF");
    bytes.erase(0, 3);
    Texts messages;
    for (const std::wstring& line : text::SplitLines(text::FromUtf8(bytes))) {
      static const std::wregex kTime(LR"(\[\d{4}-\d{2}-\d{2} \d{2}:\d{2}:\d{2}\] )");
      std::wsmatch match;
      EXPECT_TRUE(std::regex_search(line, match, kTime, std::regex_constants::match_continuous));
      messages.push_back(line.substr(static_cast<std::size_t>(match.length())));
    }
    return messages;
  }
  [[nodiscard]] static std::wstring Begun(const std::wstring& source,
                                          const std::wstring& destination,
                                          const std::wstring& parent = L"0") {
    return L"开始执行强制更新。src=" + source + L" dst=" + destination + L" parent=" + parent;
  }
  static platform::FileHandle Hold(const std::wstring& path, DWORD share) {
    return platform::FileHandle(::CreateFileW(path.c_str(), GENERIC_READ, share, nullptr,
                                              OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
  }
  void ExpectReplaced(const std::wstring& source, const std::wstring& destination) const {
    EXPECT_EQ(platform::ReadFileBytes(destination), platform::ReadFileBytes(UpdateChildPath()));
    EXPECT_FALSE(platform::IsFile(source));
    EXPECT_FALSE(platform::IsFile(destination + L".bak"));
  }

  static constexpr char kOld[] = "the old program";
  const platform::ScratchFolder scratch_;
  const std::wstring temp_ = scratch_.Path(L"临时 文件");
  const std::wstring workFolder_ = scratch_.Path(L"work");
  const std::wstring tools_ = scratch_.Path(L"维马林 工具");
  const std::wstring source_ = temp_ + L"\\新 版本.exe";
  const std::wstring destination_ = tools_ + L"\\客户端 1.exe";
};

TEST_F(ApplyUpdateMode, ReplacesTheProgramAndStartsTheNewOneShown) {
  EXPECT_EQ(Apply(source_, destination_), 0);
  EXPECT_EQ(TakeRunOf(destination_), L"shown\n");
  ExpectReplaced(source_, destination_);
  EXPECT_EQ(Log(), (Texts{Begun(source_, destination_), L"更新成功，已重启主程序。"}));
}

TEST_F(ApplyUpdateMode, CreatesTheFolderOfTheProgramsLogButNoLog) {
  EXPECT_EQ(Apply(temp_ + L"\\missing.exe", destination_), 2);
  WIN32_FIND_DATAW month{};
  const HANDLE found = ::FindFirstFileW((workFolder_ + L"\\Log\\??????").c_str(), &month);
  ASSERT_NE(found, INVALID_HANDLE_VALUE);
  ::FindClose(found);
  WIN32_FIND_DATAW file{};
  const HANDLE anyLog =
      ::FindFirstFileW((workFolder_ + L"\\Log\\" + month.cFileName + L"\\*.log").c_str(), &file);
  EXPECT_EQ(anyLog, INVALID_HANDLE_VALUE);
}

TEST_F(ApplyUpdateMode, WithoutASourceNothingHappens) {
  const std::wstring folder = scratch_.Path(L"a folder");
  ASSERT_TRUE(platform::CreateFolders(folder));
  Texts wanted;
  for (const std::wstring& source : {std::wstring(), temp_ + L"\\missing.exe", folder}) {
    EXPECT_EQ(Apply(source, destination_), 2);
    wanted.push_back(Begun(source, destination_));
    wanted.push_back(L"更新失败：下载文件不存在。");
  }
  EXPECT_EQ(Log(), wanted) << "one log for all updates";
  EXPECT_EQ(platform::ReadFileBytes(destination_), kOld);
}

TEST_F(ApplyUpdateMode, ALockedDestinationIsUnchanged) {
  const platform::FileHandle holder = Hold(destination_, FILE_SHARE_READ);
  ASSERT_TRUE(holder);
  EXPECT_EQ(Apply(source_, destination_), 32);
  EXPECT_EQ(platform::ReadFileBytes(destination_), kOld);
  EXPECT_FALSE(platform::IsFile(destination_ + L".bak"));
  EXPECT_TRUE(platform::IsFile(source_));
  EXPECT_EQ(Log(), (Texts{Begun(source_, destination_), L"更新失败：覆盖主程序失败，错误码 32"}));
}

TEST_F(ApplyUpdateMode, AnUnreadableDownloadRestoresTheBackup) {
  const platform::FileHandle holder = Hold(source_, 0);  // as a virus scanner might
  ASSERT_TRUE(holder);
  EXPECT_EQ(Apply(source_, destination_), 32);
  EXPECT_EQ(platform::ReadFileBytes(destination_), kOld);
  EXPECT_FALSE(platform::IsFile(destination_ + L".bak"));
  EXPECT_EQ(Log(), (Texts{Begun(source_, destination_), L"更新失败：覆盖主程序失败，错误码 32"}));
}

// ---- obstacles

TEST_F(ApplyUpdateMode, AFolderWithTheBackupsNameDoesNotMatter) {
  ASSERT_TRUE(platform::CreateFolders(destination_ + L".bak\\with something in it"));
  EXPECT_EQ(Apply(source_, destination_), 0);
  EXPECT_EQ(TakeRunOf(destination_), L"shown\n");
  EXPECT_EQ(platform::ReadFileBytes(destination_), platform::ReadFileBytes(UpdateChildPath()));
}

TEST_F(ApplyUpdateMode, ReadOnlyFilesDoNotMatter) {
  ASSERT_TRUE(platform::WriteFileBytes(destination_ + L".bak", "of another time"));
  ASSERT_TRUE(platform::WriteFileBytes(destination_ + L".new", "of another time"));
  for (const wchar_t* suffix : {L"", L".bak", L".new"}) {
    ASSERT_TRUE(::SetFileAttributesW((destination_ + suffix).c_str(), FILE_ATTRIBUTE_READONLY));
  }
  EXPECT_EQ(Apply(source_, destination_), 0);
  EXPECT_EQ(TakeRunOf(destination_), L"shown\n");
  ExpectReplaced(source_, destination_);
  EXPECT_FALSE(platform::IsFile(destination_ + L".new"));
}

TEST_F(ApplyUpdateMode, AMissingDestinationIsCreated) {
  const std::wstring missing = tools_ + L"\\missing.exe";
  EXPECT_EQ(Apply(source_, missing), 0);
  EXPECT_EQ(TakeRunOf(missing), L"shown\n");
  ExpectReplaced(source_, missing);
}

TEST_F(ApplyUpdateMode, ANewProgramThatDoesNotStartRemainsInPlace) {
  ASSERT_TRUE(platform::WriteFileBytes(source_, "no program at all"));
  EXPECT_EQ(Apply(source_, destination_), 193);
  EXPECT_EQ(platform::ReadFileBytes(destination_), "no program at all");
  EXPECT_FALSE(platform::IsFile(destination_ + L".bak"));
  EXPECT_EQ(Log(), (Texts{Begun(source_, destination_), L"更新已覆盖，但重启失败，错误码 193"}));
}

TEST_F(ApplyUpdateMode, WaitsForAProgramThatStillRunsFromTheDestination) {
  ASSERT_TRUE(platform::CopyFileOver(UpdateChildPath(), destination_).succeeded);
  const TestProcess old(QuoteArgument(destination_) + L" sleep 2500", workFolder_);
  EXPECT_EQ(TakeRunOf(destination_), L"shown\nsleep\n2500\n");
  const std::wstring parent = std::to_wstring(old.Id());
  EXPECT_EQ(Apply(source_, destination_, parent), 0);
  EXPECT_TRUE(old.HasEnded()) << "nothing was replaced before";
  EXPECT_EQ(old.ExitCode(), 0) << "it was let go on to its end";
  EXPECT_EQ(TakeRunOf(destination_), L"shown\n");
  EXPECT_EQ(Log().front(), Begun(source_, destination_, parent));
}

TEST_F(ApplyUpdateMode, DoesNotWaitForAProcessThatIsGone) {
  const TestProcess gone(QuoteArgument(UpdateChildPath()), workFolder_);
  ASSERT_EQ(gone.ExitCode(), 0);
  const auto before = std::chrono::steady_clock::now();
  EXPECT_EQ(Apply(source_, destination_, L"2147483644"), 0);
  const auto took = std::chrono::steady_clock::now() - before;
  EXPECT_GE(took, std::chrono::milliseconds(800));
  EXPECT_LT(took, std::chrono::seconds(50));
  TakeRunOf(destination_);
}

TEST_F(ApplyUpdateMode, TakesPathsOf259Characters) {
  constexpr std::size_t kLongest = 259;
  const auto longPath = [&](const std::wstring& folder) {
    std::wstring path = folder + L"\\";
    path.resize(200, L'长');
    EXPECT_TRUE(platform::CreateFolders(path));
    path += L"\\";
    path.resize(kLongest - 4, L'名');
    return path + L".exe";
  };
  const std::wstring source = longPath(temp_);
  const std::wstring destination = longPath(tools_);
  ASSERT_TRUE(platform::CopyFileOver(UpdateChildPath(), source).succeeded);
  ASSERT_TRUE(platform::WriteFileBytes(destination, kOld));
  EXPECT_EQ(Apply(source, destination), 0);
  EXPECT_EQ(TakeRunOf(destination), L"shown\n");
  ExpectReplaced(source, destination);
}

TEST_F(ApplyUpdateMode, ContinuesWithoutItsLog) {
  const TemporaryFolderScope temporary(scratch_.Path(L"no such folder"));
  const TestProcess process(CommandLine(L"0", source_, destination_), workFolder_);
  EXPECT_EQ(process.ExitCode(), 0);
  EXPECT_EQ(TakeRunOf(destination_), L"shown\n");
}

// ---- the process is killed before every step of the swap, and during the write

struct KilledStep {
  const char* before;
  const char* destination;  // "old", "new", "half", "none"
  const char* backup;
};

class SwapOnDisk : public testing::Test {
 protected:
  // Which of the two programs the file at `path` contains.
  [[nodiscard]] std::string Holds(const std::wstring& path) const {
    const auto bytes = platform::ReadFileBytes(path);
    if (!bytes) return "none";
    if (*bytes == old_) return "old";
    return *bytes == new_ ? "new" : "half";
  }
  [[nodiscard]] std::wstring Path(const wchar_t* name) const { return scratch_.Path(name); }

  [[nodiscard]] std::optional<int> RunWithCut(std::size_t step,
                                              const std::wstring& destination) const {
    platform::DeleteAnyFile(destination + L".bak");
    EXPECT_TRUE(platform::WriteFileBytes(destination, old_));
    EXPECT_TRUE(platform::WriteFileBytes(Path(L"new.exe"), new_));
    const TestProcess process(QuoteArgument(UpdateChildPath()) + L" swap " + std::to_wstring(step) +
                                  L" " + QuoteArgument(Path(L"new.exe")) + L" " +
                                  QuoteArgument(destination),
                              scratch_.Folder());
    return process.ExitCode();
  }

  const platform::ScratchFolder scratch_;
  const std::string old_ = std::string(100000, 'o');
  const std::string new_ = std::string(150001, 'n');
};

TEST_F(SwapOnDisk, AProcessKilledAnywhereLeavesAProgram) {
  constexpr KilledStep kCuts[] = {
      {"the writing begins", "old", "none"},
      {"the writing ends", "old", "none"},
      {"an old backup is removed", "old", "none"},
      {"the old program is set aside", "old", "none"},
      {"the new program takes its place", "none", "old"},
      {"the download is removed", "new", "old"},
      {"the backup is removed", "new", "old"},
      {"the new program starts", "new", "none"},
  };
  for (std::size_t step = 0; step < std::size(kCuts); ++step) {
    ASSERT_EQ(RunWithCut(step, Path(L"Client.exe")), kCutCode) << step;
    const KilledStep& cut = kCuts[step];
    const std::string destination = Holds(Path(L"Client.exe"));
    const std::string backup = Holds(Path(L"Client.exe.bak"));
    std::printf("killed before %-30s Client.exe: %-5s Client.exe.bak: %s\n", cut.before,
                destination.c_str(), backup.c_str());
    EXPECT_EQ(destination, cut.destination) << cut.before;
    EXPECT_EQ(backup, cut.backup) << cut.before;
    EXPECT_TRUE(destination == "old" || destination == "new" || backup == "old") << cut.before;
  }
  EXPECT_EQ(RunWithCut(std::size(kCuts), Path(L"Client.exe")), 193)
      << "all steps done; the new one is no program";
  EXPECT_EQ(Holds(Path(L"Client.exe")), "new");
}

// The paths of its backup and of the new program exceed 259 characters.
TEST_F(SwapOnDisk, AProgramWithTheLongestPathAlsoHasABackup) {
  std::wstring destination = Path(L"长");
  destination.resize(200, L'长');
  ASSERT_TRUE(platform::CreateFolders(destination));
  destination += L"\\";
  destination.resize(259, L'名');
  ASSERT_EQ(RunWithCut(4, destination), kCutCode);
  EXPECT_EQ(Holds(destination), "none");
  EXPECT_EQ(platform::HoldFile(destination + L".bak").bytes, old_);
  EXPECT_EQ(platform::HoldFile(destination + L".new").bytes, new_);
  EXPECT_EQ(RunWithCut(99, destination), 193) << "the new one is no program";
  EXPECT_EQ(Holds(destination), "new");
  EXPECT_FALSE(platform::HoldFile(destination + L".bak").result.succeeded);
}

}  // namespace
}  // namespace update
