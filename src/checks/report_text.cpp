#include <algorithm>
#include <array>
#include <cwchar>

#include "checks/check_report.h"
#include "text/strings.h"
#include "text/utf8.h"

namespace checks {
namespace {

constexpr wchar_t kTitle[] = L"Velmarine.Client 诊断报告";
constexpr wchar_t kAbout[] =
    L"求助时把这个文件发给服务管理员。密钥、密码和各种编号已换成【已隐去】；路径里的 Windows "
    L"用户名、网段、网卡名、服务器地址没有隐去，不想让人看到就先改掉再发。";
constexpr wchar_t kRule[] = L"----------------------------------------";
constexpr wchar_t kCure[] = L"办法：";

struct VerdictWords {
  const wchar_t* chinese;
  const wchar_t* english;
};
constexpr VerdictWords kVerdicts[] = {{L"正常", L"OK"}, {L"提示", L"NOTE"}, {L"异常", L"FAULT"}};

const VerdictWords& WordsOf(Verdict verdict) {
  return kVerdicts[static_cast<std::size_t>(verdict)];
}

std::wstring ReadableTime(const platform::LocalTime& time) {
  std::array<wchar_t, 64> buffer{};
  std::swprintf(buffer.data(), buffer.size(), L"%04d-%02d-%02d %02d:%02d:%02d", time.year,
                time.month, time.day, time.hour, time.minute, time.second);
  return buffer.data();
}

std::wstring Id(const Finding& finding) {
  return L"[" + text::FromUtf8(finding.id) + L"] ";
}

class Lines {
 public:
  void Add(std::wstring_view line) { text_.append(line).append(text::kLineBreak); }
  [[nodiscard]] const std::wstring& Text() const { return text_; }

 private:
  std::wstring text_;
};

// Worst first; equal ones in the order of the checks.
void AddSummary(const std::vector<Finding>& findings, Lines& report) {
  const auto count = [&findings](Verdict verdict) {
    return std::to_wstring(std::ranges::count_if(findings, [verdict](const Finding& finding) {
      return finding.outcome.WorstVerdict() == verdict;
    }));
  };
  report.Add(L"总结：异常 " + count(Verdict::Fault) + L" 项，提示 " + count(Verdict::Note) +
             L" 项，正常 " + count(Verdict::Well) + L" 项。");
  for (const Verdict verdict : {Verdict::Fault, Verdict::Note, Verdict::Well}) {
    for (const Finding& finding : findings) {
      if (finding.outcome.WorstVerdict() != verdict) continue;
      std::wstring line =
          std::wstring(WordsOf(verdict).chinese) + L" " + Id(finding) + finding.title;
      const auto& problems = finding.outcome.problems;
      const auto first = std::ranges::find(problems, verdict, &Problem::verdict);
      // Only the first problem of the worst kind: the summary has one line per check.
      if (first != problems.end()) line += L"：" + first->text;
      report.Add(line);
    }
  }
}

void AddFinding(const Finding& finding, Lines& report) {
  const VerdictWords& words = WordsOf(finding.outcome.WorstVerdict());
  report.Add(L"");
  report.Add(L"【" + std::wstring(words.chinese) + L"】" + finding.title);
  report.Add(Id(finding) + text::FromUtf8(finding.english) + L" " + words.english);
  for (const Problem& problem : finding.outcome.problems) {
    report.Add(std::wstring(WordsOf(problem.verdict).chinese) + L"：" + problem.text);
    if (!problem.cure.empty()) report.Add(kCure + problem.cure);
  }
  for (const std::wstring& line : finding.outcome.lines) report.Add(L"  " + line);
}

void AddLog(const LogTail& log, Lines& report) {
  report.Add(L"");
  report.Add(kRule);
  if (log.paths.empty()) {
    report.Add(L"日志：没有找到日志文件。 (No log file was found.)");
    return;
  }
  report.Add(L"日志的最后 " + std::to_wstring(log.lines.size()) + L" 行 (the log's last lines)：");
  for (const std::wstring& path : log.paths) report.Add(L"  " + path);
  for (const std::wstring& line : log.lines) report.Add(line);
}

}  // namespace

std::wstring ReportText(const std::wstring& version, const platform::LocalTime& time,
                        const std::vector<Finding>& findings, const LogTail& log) {
  Lines report;
  report.Add(kTitle);
  report.Add(L"版本 " + version + L"，" + ReadableTime(time));
  report.Add(kAbout);
  report.Add(L"");
  AddSummary(findings, report);
  report.Add(L"");
  report.Add(kRule);
  for (const Finding& finding : findings) AddFinding(finding, report);
  AddLog(log, report);
  return report.Text();
}

}  // namespace checks
