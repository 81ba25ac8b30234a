#include <gtest/gtest.h>

#include <memory>
#include <vector>

#include "platform/files.h"
#include "platform/safe_files.h"
#include "platform/windows_sdk.h"
#include "update/apply_update.h"
#include "update/update_process_win.h"
// After the SDK, which it needs.
#include <shellapi.h>

namespace update {
namespace {

std::vector<std::wstring> Split(const std::wstring& commandLine) {
  int count = 0;
  const std::unique_ptr<LPWSTR[], decltype(&::LocalFree)> parts(
      ::CommandLineToArgvW(commandLine.c_str(), &count), &::LocalFree);
  return std::vector<std::wstring>(parts.get(), parts.get() + count);
}

TEST(QuoteArgumentOnWindows, ComesOutOfTheSystemsSplittingAsItWentIn) {
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

TEST(UpdaterCommandLineOnWindows, IsSplitIntoWhatTheModeReads) {
  EXPECT_EQ(Split(UpdaterCommandLine(L"D:\\工 具\\c.exe.updater.exe", 12, L"C:\\a b\\新.exe",
                                     L"D:\\工 具\\c.exe")),
            (std::vector<std::wstring>{L"D:\\工 具\\c.exe.updater.exe", L"--apply-update", L"12",
                                       L"C:\\a b\\新.exe", L"D:\\工 具\\c.exe"}));
}

// The child stands for the program, in a folder with blanks and Chinese letters.
class UpdaterOnDisk : public testing::Test {
 protected:
  UpdaterOnDisk() {
    EXPECT_TRUE(platform::CreateFolders(scratch_.Path(L"维马林 工具")));
    EXPECT_TRUE(platform::CopyFileOver(UpdateChildPath(), self_).succeeded);
    EXPECT_EQ(deps_.processId, ::GetCurrentProcessId());
    deps_.programPath = self_;
  }

  // A copy of the child under a path of so many characters.
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
  // What the replacement process for `self` must tell of its run.
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

TEST_F(UpdaterOnDisk, StartsACopyHiddenWithTheArgumentsAsTheyAre) {
  ASSERT_TRUE(StartUpdater(download_, deps_));
  EXPECT_EQ(TakeRunOf(copy_), Wanted(self_));
  EXPECT_EQ(platform::ReadFileBytes(copy_), platform::ReadFileBytes(UpdateChildPath()));
}

TEST_F(UpdaterOnDisk, OverwritesTheCopyOfAnEarlierUpdate) {
  ASSERT_TRUE(platform::WriteFileBytes(copy_, "an earlier one"));
  ASSERT_TRUE(StartUpdater(download_, deps_));
  EXPECT_EQ(TakeRunOf(copy_), Wanted(self_));
}

TEST_F(UpdaterOnDisk, StartsTheProgramItselfWhereAFolderTakesTheCopysPlace) {
  ASSERT_TRUE(platform::CreateFolders(copy_));
  ASSERT_TRUE(StartUpdater(download_, deps_));
  EXPECT_EQ(TakeRunOf(self_), Wanted(self_));
}

TEST_F(UpdaterOnDisk, SaysThatNothingCouldBeStarted) {
  ASSERT_TRUE(platform::WriteFileBytes(self_, "no program"));
  EXPECT_FALSE(StartUpdater(download_, deps_));
}

// The longest path that Windows takes from programs that ask for no more.
constexpr std::size_t kLongestPath = 259;

TEST_F(UpdaterOnDisk, StartsACopyWhosePathIsAsLongAsPathsMayBe) {
  deps_.programPath = LongProgramPath(kLongestPath - std::wstring(L".updater.exe").size());
  ASSERT_TRUE(StartUpdater(download_, deps_));
  EXPECT_EQ(TakeRunOf(deps_.programPath + L".updater.exe"), Wanted(deps_.programPath));
}

// Windows has no room for the path of a copy, so the program itself is started. Wine makes the
// copy, but does not start it; then the update is given up.
TEST_F(UpdaterOnDisk, StartsTheProgramItselfWhereTheCopysPathWouldBeTooLong) {
  deps_.programPath = LongProgramPath(kLongestPath);
  const bool hasStarted = StartUpdater(download_, deps_);
  if (platform::IsFile(deps_.programPath + L".updater.exe")) {
    EXPECT_FALSE(hasStarted);
  } else {
    EXPECT_EQ(TakeRunOf(deps_.programPath), Wanted(deps_.programPath));
  }
}

// ---- the end of the old program

TEST(EndProcessAtOnce, EndsWithItsCodeAndDoesNothingElse) {
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
