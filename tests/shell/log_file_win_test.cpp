#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "platform/files.h"
#include "platform/handles_win.h"
#include "shell/log_file.h"
#include "shell/test_folder_win.h"

namespace shell {
namespace {

constexpr char kUtf8Mark[] = "\xEF\xBB\xBF";

// Real files, but a fake clock and a folder of the test.
class LogOnDisk : public testing::Test {
 protected:
  static LocalTime Now() { return {2026, 3, 15, 9, 41, 2}; }
  void Start(LogFile& log) { log.Start(folder_.Root(), CreateLogFolders); }

  TestFolder folder_{L"log"};
};

TEST_F(LogOnDisk, CreatesItsFolderAndStartsItsFileWithOneMark) {
  LogFile log(Now, AppendToLog);
  Start(log);
  EXPECT_FALSE(platform::IsFile(log.Path()));
  log.WriteLine(L"一");
  log.WriteLine(L"二");

  EXPECT_EQ(log.Path(), folder_.Path(L"Log\\202603\\20260315_094102.log"));
  EXPECT_EQ(platform::ReadFileBytes(log.Path()),
            std::string(kUtf8Mark) + "[09:41:02] \xE4\xB8\x80\r\n[09:41:02] \xE4\xBA\x8C\r\n");
}

TEST_F(LogOnDisk, AppendsToTheFileOfAStartInTheSameSecond) {
  for (const wchar_t* text : {L"first", L"second"}) {
    LogFile log(Now, AppendToLog);
    Start(log);
    log.WriteLine(text);
  }

  EXPECT_EQ(platform::ReadFileBytes(folder_.Path(L"Log\\202603\\20260315_094102.log")),
            std::string(kUtf8Mark) + "[09:41:02] first\r\n[09:41:02] second\r\n");
}

TEST_F(LogOnDisk, CanBeReadWhileItGrowsAndIsRecreatedWhenRemoved) {
  LogFile log(Now, AppendToLog);
  Start(log);
  log.WriteLine(L"gone");
  ASSERT_TRUE(std::filesystem::remove(log.Path())) << "no handle is kept open";
  log.WriteLine(L"there");

  EXPECT_EQ(platform::ReadFileBytes(log.Path()), std::string(kUtf8Mark) + "[09:41:02] there\r\n");
}

TEST_F(LogOnDisk, LosesLinesSilentlyWhileTheFileCannotBeOpened) {
  LogFile log(Now, AppendToLog);
  Start(log);
  log.WriteLine(L"before");
  {
    const platform::FileHandle lock(::CreateFileW(log.Path().c_str(), GENERIC_READ, 0, nullptr,
                                                  OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
    ASSERT_TRUE(static_cast<bool>(lock));
    log.WriteLine(L"lost");
  }
  log.WriteLine(L"after");

  EXPECT_EQ(platform::ReadFileBytes(log.Path()),
            std::string(kUtf8Mark) + "[09:41:02] before\r\n[09:41:02] after\r\n");
}

TEST_F(LogOnDisk, IgnoresAFolderThatCannotBeCreated) {
  ASSERT_TRUE(platform::WriteFileBytes(folder_.Path(L"Log"), "a file"));
  LogFile log(Now, AppendToLog);
  Start(log);
  log.WriteLine(L"lost");

  EXPECT_EQ(log.Path(), folder_.Path(L"Log\\202603\\20260315_094102.log"));
  EXPECT_EQ(platform::ReadFileBytes(folder_.Path(L"Log")), "a file");
}

TEST_F(LogOnDisk, TheProcessLogIsBelowTheCurrentFolder) {
  const std::filesystem::path before = std::filesystem::current_path();
  std::filesystem::current_path(folder_.Root());
  WriteLogLine(L"before the start");
  EXPECT_EQ(LogPath(), L"");
  StartLog();
  std::filesystem::current_path(before);
  WriteLogLine(L"line");

  const std::wstring path = LogPath();
  EXPECT_EQ(path.rfind(folder_.Path(L"Log\\"), 0), 0u);
  const auto bytes = platform::ReadFileBytes(path);
  ASSERT_TRUE(bytes.has_value());
  EXPECT_EQ(bytes->size(), std::string("\xEF\xBB\xBF[00:00:00] line\r\n").size());
  EXPECT_EQ(bytes->substr(bytes->size() - 6), "line\r\n");
}

}  // namespace
}  // namespace shell
