#include <gtest/gtest.h>

#include <memory>
#include <vector>

#include "platform/files.h"
#include "platform/safe_files.h"
#include "platform/windows_sdk.h"
#include "update/apply_update.h"
#include "update/update_process_win.h"
// Requires the SDK header above.
#include <shellapi.h>

namespace update {
namespace {

std::vector<std::wstring> Split(const std::wstring& commandLine) {
  int count = 0;
  const std::unique_ptr<LPWSTR[], decltype(&::LocalFree)> parts(
      ::CommandLineToArgvW(commandLine.c_str(), &count), &::LocalFree);
  return std::vector<std::wstring>(parts.get(), parts.get() + count);
}

TEST(QuoteArgumentOnWindows, SurvivesTheSystemsSplitting) {
  for (const std::wstring& text :
       {std::wstring(L""), std::wstring(L"a"), std::wstring(L"C:\\Program Files\\a b\\c.exe"),
        std::wstring(L"D:\\维马林\\客户端 (2).exe"), std::wstring(L"a \"b\" c"),
        std::wstring(L"\""), std::wstring(L"a\"\"b"), std::wstring(L"\\\\server\\share\\x"),
        std::wstring(L"\t x"), std::wstring(L"\xD83D\xDE00%TEMP%^&'"), std::wstring(259, L'长')}) {
    const std::vector<std::wstring> parts =
        Split(L"x.exe " + QuoteArgument(text) + L" " + QuoteArgument(L"next"));
    EXPECT_EQ(parts, (std::vector<std::wstring>{L"x.exe", text, L"next"}));
  }
}

TEST(UpdaterCommandLineOnWindows, IsSplitIntoTheModesArguments) {
  EXPECT_EQ(Split(UpdaterCommandLine(L"D:\\工 具\\c.exe.updater.exe", 12, L"C:\\a b\\新.exe",
                                     L"D:\\工 具\\c.exe")),
            (std::vector<std::wstring>{L"D:\\工 具\\c.exe.updater.exe", L"--apply-update", L"12",
                                       L"C:\\a b\\新.exe", L"D:\\工 具\\c.exe"}));
}

// The child plays the program, in a folder with blanks and Chinese characters.
class UpdaterOnDisk : public testing::Test {
 protected:
  UpdaterOnDisk() {
    EXPECT_TRUE(platform::CreateFolders(scratch_.Path(L"维马林 工具")));
    EXPECT_TRUE(platform::CopyFileOver(UpdateChildPath(), self_).succeeded);
    EXPECT_EQ(deps_.processId, ::GetCurrentProcessId());
    deps_.programPath = self_;
  }

  // A copy of the child at a path of this length.
  [[nodiscard]] std::wstring LongProgramPath(std::size_t lengthUnits) const {
    std::wstring path = scratch_.Path(L"长");
    path.resize(200, L'长');
    EXPECT_TRUE(platform::CreateFolders(path));
    path += L"\\";
    path.resize(lengthUnits - 4, L'客');
    path += L".exe";
    EXPECT_TRUE(platform::CopyFileOver(UpdateChildPath(), path).succeeded);
    return path;
  }
  // The text that the replacement process for `self` must write.
  [[nodiscard]] std::wstring Wanted(const std::wstring& self) const {
    return L"hidden\n--apply-update\n" + std::to_wstring(::GetCurrentProcessId()) + L"\n" +
           download_ + L"\n" + self + L"\n";
  }

  const platform::ScratchFolder scratch_;
  const std::wstring self_ = scratch_.Path(L"维马林 工具\\Client.exe");
  const std::wstring copy_ = self_ + L".updater.exe";
  RealUpdateDeps deps_{{}};
  const std::wstring download_ = L"C:\\a \"b\" 下载\\new.exe";
};

TEST_F(UpdaterOnDisk, StartsAHiddenCopyWithUnchangedArguments) {
  ASSERT_TRUE(StartUpdater(download_, deps_));
  EXPECT_EQ(TakeRunOf(copy_), Wanted(self_));
  EXPECT_EQ(platform::ReadFileBytes(copy_), platform::ReadFileBytes(UpdateChildPath()));
}

TEST_F(UpdaterOnDisk, OverwritesTheCopyOfAnEarlierUpdate) {
  ASSERT_TRUE(platform::WriteFileBytes(copy_, "an earlier one"));
  ASSERT_TRUE(StartUpdater(download_, deps_));
  EXPECT_EQ(TakeRunOf(copy_), Wanted(self_));
}

TEST_F(UpdaterOnDisk, StartsTheProgramItselfIfAFolderHasTheCopysName) {
  ASSERT_TRUE(platform::CreateFolders(copy_));
  ASSERT_TRUE(StartUpdater(download_, deps_));
  EXPECT_EQ(TakeRunOf(self_), Wanted(self_));
}

TEST_F(UpdaterOnDisk, ReportsThatNothingCouldBeStarted) {
  ASSERT_TRUE(platform::WriteFileBytes(self_, "no program"));
  EXPECT_FALSE(StartUpdater(download_, deps_));
}

// The longest path for programs that do not enable long paths.
constexpr std::size_t kLongestPath = 259;

TEST_F(UpdaterOnDisk, StartsACopyWithTheLongestPossiblePath) {
  deps_.programPath = LongProgramPath(kLongestPath - std::wstring(L".updater.exe").size());
  ASSERT_TRUE(StartUpdater(download_, deps_));
  EXPECT_EQ(TakeRunOf(deps_.programPath + L".updater.exe"), Wanted(deps_.programPath));
}

// On Windows the path of a copy is too long, so the program itself is started. Wine creates the
// copy but does not start it, and the update is given up.
TEST_F(UpdaterOnDisk, StartsTheProgramItselfIfTheCopysPathWouldBeTooLong) {
  deps_.programPath = LongProgramPath(kLongestPath);
  const bool hasStarted = StartUpdater(download_, deps_);
  if (platform::IsFile(deps_.programPath + L".updater.exe")) {
    EXPECT_FALSE(hasStarted);
  } else {
    EXPECT_EQ(TakeRunOf(deps_.programPath), Wanted(deps_.programPath));
  }
}

// ---- ending the old program

TEST(EndProcessAtOnce, EndsWithTheCodeAndDoesNothingElse) {
  const platform::ScratchFolder scratch;
  const std::wstring child = scratch.Path(L"child.exe");
  ASSERT_TRUE(platform::CopyFileOver(UpdateChildPath(), child).succeeded);
  for (const int code : {0, 7}) {
    const TestProcess process(L"\"" + child + L"\" end " + std::to_wstring(code), scratch.Folder());
    EXPECT_EQ(process.ExitCode(), code);
    EXPECT_FALSE(platform::IsFile(child + L".tidied"));
  }
  const TestProcess orderly(L"\"" + child + L"\"", scratch.Folder());
  EXPECT_EQ(orderly.ExitCode(), 0);
  EXPECT_TRUE(platform::IsFile(child + L".tidied")) << "what the others must not have done";
}

}  // namespace
}  // namespace update
