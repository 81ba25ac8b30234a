#include <gtest/gtest.h>

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "checks/check_report.h"
#include "platform/memory_files.h"
#include "text/strings.h"
#include "text/utf8.h"

namespace checks {
namespace {

constexpr wchar_t kName[] = L"Velmarine.Check_20260315_094102.txt";

Outcome Broken() {
  Outcome outcome;
  outcome.Note(L"小事");
  outcome.Fault(L"坏了 KEY-1234", L"修好它");
  outcome.Line(L"看到的");
  return outcome;
}

// Fails to write at some paths and stores all other files.
class ReportFiles : public platform::MemoryFiles {
 public:
  std::wstring Write(const std::wstring& path, const std::string& bytes) override {
    if (const auto refusal = refused.find(path); refusal != refused.end()) return refusal->second;
    reports[path] = bytes;
    return {};
  }

  std::map<std::wstring, std::wstring> refused;
  std::map<std::wstring, std::string> reports;
};

class Reports : public testing::Test {
 protected:
  Reports() {
    deps_.version = L"1.0.4";
    deps_.checks = {{"good", L"好的", "It is good.", [] { return Outcome(); }},
                    {"bad", L"坏的", "It is well.", Broken}};
    deps_.time = {2026, 3, 15, 9, 41, 2};
    files_.files = {{L"C:\\S\\Client.settings.json", "{\"deviceSecret\":\"geheim 1\"}"},
                    {L"C:\\x.log", "[09:00:00] mit Geheim 1"}};
    deps_.settingsFolder = L"C:\\S";
    deps_.logPath = L"C:\\x.log";
    deps_.folders = {L"C:\\Desktop", L"C:\\Temp"};
    deps_.files = &files_;
    deps_.open = [this](const std::wstring& path) { opened_.push_back(path); };
  }

  ReportFiles files_;
  std::map<std::wstring, std::wstring>& refused_ = files_.refused;
  std::map<std::wstring, std::string>& written_ = files_.reports;
  ReportDeps deps_;
  std::vector<std::wstring> opened_;
};

TEST_F(Reports, AreWrittenToTheGivenPath) {
  EXPECT_EQ(WriteCheckReport(L"D:\\a.txt", deps_).path, L"D:\\a.txt");
  EXPECT_EQ(written_.size(), 1u);
  EXPECT_EQ(opened_, std::vector<std::wstring>{L"D:\\a.txt"});
}

TEST_F(Reports, AreWrittenToTheFirstWritableFolder) {
  const std::wstring desktop = std::wstring(L"C:\\Desktop\\") + kName;
  const std::wstring temp = std::wstring(L"C:\\Temp\\") + kName;
  EXPECT_EQ(WriteCheckReport(std::nullopt, deps_).path, desktop);
  refused_[desktop] = L"拒绝访问。";
  EXPECT_EQ(WriteCheckReport(std::nullopt, deps_).path, temp);
  EXPECT_EQ(opened_, (std::vector<std::wstring>{desktop, temp}));
}

TEST_F(Reports, StateWhyTheyCannotBeWritten) {
  refused_[L"D:\\a.txt"] = L"磁盘空间不足。";
  const WrittenReport written = WriteCheckReport(L"D:\\a.txt", deps_);
  EXPECT_EQ(written.path, L"");
  EXPECT_EQ(written.failure, L"D:\\a.txt：磁盘空间不足。");
  EXPECT_TRUE(opened_.empty());
}

TEST_F(Reports, ContainEverythingButSecrets) {
  WriteCheckReport(L"r", deps_);
  const std::string& bytes = written_[L"r"];
  ASSERT_TRUE(bytes.starts_with("\xEF\xBB\xBF"));
  const std::wstring text = text::FromUtf8(bytes.substr(3));
  EXPECT_EQ(text.find(L"\n\n"), std::wstring::npos) << "CRLF throughout";
  const std::vector<std::wstring> lines = text::SplitLines(text);
  const std::vector<std::wstring> behindAbout(lines.begin() + 3, lines.end());
  EXPECT_EQ(lines[0], L"Velmarine.Client 诊断报告");
  EXPECT_EQ(lines[1], L"版本 1.0.4，2026-03-15 09:41:02");
  EXPECT_NE(lines[2].find(L"用户名"), std::wstring::npos);
  EXPECT_EQ(behindAbout, (std::vector<std::wstring>{
                             L"总结：异常 1 项，提示 0 项，正常 1 项。",
                             L"异常 [bad] 坏的：坏了 【已隐去】",
                             L"正常 [good] 好的",
                             L"----------------------------------------",
                             L"【正常】好的",
                             L"[good] It is good. OK",
                             L"【异常】坏的",
                             L"[bad] It is well. FAULT",
                             L"提示：小事",
                             L"异常：坏了 【已隐去】",
                             L"办法：修好它",
                             L"  看到的",
                             L"----------------------------------------",
                             L"日志的最后 1 行 (the log's last lines)：",
                             L"  C:\\x.log",
                             L"[09:00:00] mit 【已隐去】",
                         }));
}

using Names = std::vector<std::wstring>;

TEST(LogFiles, AreTheNewestByTheirNames) {
  platform::MemoryFiles files;
  for (const wchar_t* const path :
       {L"C:\\w\\Log\\202602\\20260228_100000.log", L"C:\\w\\Log\\202603\\20260301_100000.log",
        L"C:\\w\\Log\\202603\\20260303_100000.txt", L"C:\\w\\Log\\202603\\notes.log",
        L"C:\\w\\Log\\other\\20270101_000000.log", L"C:\\p\\Log\\202603\\20260302_100000.log",
        L"C:\\p\\Log\\202603\\20260301_110000.LOG"}) {
    files.files[path] = "";
  }
  EXPECT_EQ(
      FindLogFiles({L"C:\\w", L"C:\\p", L""}, files),
      (Names{L"C:\\p\\Log\\202603\\20260302_100000.log", L"C:\\p\\Log\\202603\\20260301_110000.LOG",
             L"C:\\w\\Log\\202603\\20260301_100000.log"}));
}

std::string NumberedLines(int first, int count) {
  std::string text = "\xEF\xBB\xBF";
  for (int i = first; i < first + count; ++i) text += std::to_string(i) + "\r\n";
  return text;
}

TEST(LogTails, ContainTheLastLinesOfTheNewestThenOfOlderFiles) {
  platform::MemoryFiles files;
  files.files = {{L"new", NumberedLines(1000, 250)},
                 {L"old", NumberedLines(0, 400)},
                 {L"oldest", NumberedLines(0, 9)}};
  const LogTail tail = ReadLogTail({L"gone", L"new", L"old", L"oldest"}, files);
  EXPECT_EQ(tail.paths, (Names{L"new", L"old"}));
  ASSERT_EQ(tail.lines.size(), kLogLines);
  EXPECT_EQ(tail.lines.front(), L"350");
  EXPECT_EQ(tail.lines[49], L"399");
  EXPECT_EQ(tail.lines[50], L"1000");
  EXPECT_EQ(tail.lines.back(), L"1249");
  EXPECT_TRUE(ReadLogTail({L"gone"}, files).paths.empty());
}

}  // namespace
}  // namespace checks
