#include "shell/log_file.h"

#include <gtest/gtest.h>

#include <functional>
#include <map>
#include <string>
#include <thread>
#include <vector>

namespace shell {
namespace {

constexpr char kMark[] = "\xEF\xBB\xBF";

// A clock, a folder and files in memory.
class LogFileTest : public testing::Test {
 protected:
  LogFileTest() { now_ = {2026, 3, 15, 9, 41, 2}; }

  static LocalTime Now() { return now_; }
  LogFile::Append Append() {
    return [this](const std::wstring& path, std::string_view mark, std::string_view line) {
      if (onAppend_) onAppend_();
      std::string& file = files_[path];
      if (file.empty()) file = mark;
      file.append(line);
    };
  }
  void Start(LogFile& log) {
    log.Start(base_, [this](const std::wstring& folder) { folders_.push_back(folder); });
  }

  static inline LocalTime now_;
  std::wstring base_ = L"D:\\Tools";
  std::vector<std::wstring> folders_;
  std::map<std::wstring, std::string> files_;
  std::function<void()> onAppend_;
};

TEST_F(LogFileTest, IsNamedAfterItsStartTime) {
  LogFile log(Now, Append());
  EXPECT_EQ(log.Path(), L"");
  Start(log);

  EXPECT_EQ(log.Path(), L"D:\\Tools\\Log\\202603\\20260315_094102.log");
  EXPECT_EQ(folders_, (std::vector<std::wstring>{L"D:\\Tools\\Log\\202603"}));
  EXPECT_TRUE(files_.empty()) << "no file before the first line";
}

TEST_F(LogFileTest, AcceptsABaseFolderWithATrailingSlash) {
  for (const wchar_t* base : {L"D:\\", L"D:/"}) {
    base_ = base;
    LogFile log(Now, Append());
    Start(log);
    EXPECT_EQ(log.Path(), base_ + L"Log\\202603\\20260315_094102.log");
  }
}

TEST_F(LogFileTest, PadsEveryNumber) {
  now_ = {987, 1, 2, 3, 4, 5};
  LogFile log(Now, Append());
  Start(log);
  log.WriteLine(L"x");

  EXPECT_EQ(log.Path(), L"D:\\Tools\\Log\\098701\\09870102_030405.log");
  EXPECT_EQ(files_[log.Path()], std::string(kMark) + "[03:04:05] x\r\n");
}

TEST_F(LogFileTest, WritesTimeTextAndLineBreakAsUtf8) {
  LogFile log(Now, Append());
  Start(log);
  log.WriteLine(L"客户端启动中 \xD83D\xDE00");
  now_.second = 3;
  log.WriteLine(L"");

  EXPECT_EQ(files_[log.Path()], std::string(kMark) +
                                    "[09:41:02] "
                                    "\xE5\xAE\xA2\xE6\x88\xB7\xE7\xAB\xAF\xE5\x90\xAF\xE5\x8A\xA8"
                                    "\xE4\xB8\xAD \xF0\x9F\x98\x80\r\n[09:41:03] \r\n");
}

TEST_F(LogFileTest, KeepsTheLineBreaksOfAText) {
  LogFile log(Now, Append());
  Start(log);
  log.WriteLine(L"\r\none\r\ntwo\n");

  EXPECT_EQ(files_[log.Path()], std::string(kMark) + "[09:41:02] \r\none\r\ntwo\n\r\n");
}

TEST_F(LogFileTest, DropsLinesBeforeItsStart) {
  LogFile log(Now, Append());
  log.WriteLine(L"too early");

  EXPECT_TRUE(files_.empty());
}

TEST_F(LogFileTest, KeepsItsFileAcrossMidnight) {
  now_ = {2026, 12, 31, 23, 59, 59};
  LogFile log(Now, Append());
  Start(log);
  log.WriteLine(L"old");
  now_ = {2027, 1, 1, 0, 0, 0};
  log.WriteLine(L"new");

  ASSERT_EQ(files_.size(), 1u);
  EXPECT_EQ(files_[L"D:\\Tools\\Log\\202612\\20261231_235959.log"],
            std::string(kMark) + "[23:59:59] old\r\n[00:00:00] new\r\n");
}

TEST_F(LogFileTest, OnlyItsFirstStartCounts) {
  LogFile log(Now, Append());
  Start(log);
  now_ = {2027, 1, 1, 0, 0, 0};
  base_ = L"C:\\Elsewhere";
  Start(log);

  EXPECT_EQ(log.Path(), L"D:\\Tools\\Log\\202603\\20260315_094102.log");
  EXPECT_EQ(folders_.size(), 1u);
}

TEST_F(LogFileTest, TwoStartsInTheSameSecondShareOneFileAndOneMark) {
  LogFile first(Now, Append());
  LogFile second(Now, Append());
  Start(first);
  first.WriteLine(L"first");
  Start(second);
  second.WriteLine(L"second");

  ASSERT_EQ(files_.size(), 1u);
  EXPECT_EQ(files_[first.Path()], std::string(kMark) + "[09:41:02] first\r\n[09:41:02] second\r\n");
}

TEST_F(LogFileTest, AllowsAWriteInsideAWrite) {
  LogFile log(Now, Append());
  Start(log);
  onAppend_ = [&] {
    onAppend_ = nullptr;
    log.WriteLine(L"inner " + log.Path().substr(0, 2));
  };
  log.WriteLine(L"outer");

  EXPECT_EQ(files_[log.Path()], std::string(kMark) + "[09:41:02] inner D:\r\n[09:41:02] outer\r\n");
}

TEST_F(LogFileTest, KeepsTheLinesOfSeveralThreadsWhole) {
  constexpr int kThreads = 4;
  constexpr int kLines = 200;
  LogFile log(Now, Append());
  Start(log);

  std::vector<std::thread> threads;
  for (int i = 0; i < kThreads; ++i) {
    threads.emplace_back([&log, i] {
      const std::wstring text(20, static_cast<wchar_t>(L'a' + i));
      for (int line = 0; line < kLines; ++line) log.WriteLine(text);
    });
  }
  for (std::thread& thread : threads) thread.join();

  const std::string file = files_[log.Path()];
  std::map<std::string, int> counts;
  for (std::size_t at = 3; at < file.size();) {
    const std::size_t end = file.find("\r\n", at);
    ASSERT_NE(end, std::string::npos);
    ++counts[file.substr(at, end - at)];
    at = end + 2;
  }
  EXPECT_EQ(counts.size(), static_cast<std::size_t>(kThreads));
  for (const auto& [line, count] : counts) EXPECT_EQ(count, kLines) << line;
}

}  // namespace
}  // namespace shell
