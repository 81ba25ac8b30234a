#include "checks/check_report.h"

#include <algorithm>
#include <iterator>

#include "checks/secrets.h"
#include "platform/path.h"
#include "text/strings.h"
#include "text/utf8.h"

namespace checks {
namespace {

constexpr std::string_view kUtf8Mark = "\xEF\xBB\xBF";
constexpr std::size_t kMostLogFiles = 3;

bool IsDigits(std::wstring_view text) {
  return std::ranges::all_of(text, [](wchar_t unit) { return unit >= L'0' && unit <= L'9'; });
}

// "20260315_094102.log"
bool IsLogName(std::wstring_view name) {
  return name.size() == 19 && IsDigits(name.substr(0, 8)) && name[8] == L'_' &&
         IsDigits(name.substr(9, 6)) && text::EqualsIgnoreCase(name.substr(15), L".log");
}

struct LogName {
  std::wstring name;
  std::wstring path;
};

void AddLogsOf(const std::wstring& root, const FolderReader& reader, std::vector<LogName>& found) {
  for (const std::wstring& month : reader.listFolders(root)) {
    if (month.size() != 6 || !IsDigits(month)) continue;
    const std::wstring folder = platform::JoinPath(root, month);
    for (const std::wstring& name : reader.listFiles(folder)) {
      if (IsLogName(name)) found.push_back({name, platform::JoinPath(folder, name)});
    }
  }
}

std::wstring BlackedOutReport(const ReportDeps& deps, const platform::LocalTime& time) {
  const std::vector<Finding> findings = RunChecks(deps.makeChecks(), deps.limit);
  Secrets secrets;
  for (const std::wstring& text : deps.secretTexts()) secrets.LearnFrom(text);
  return secrets.BlackOut(ReportText(deps.version, time, findings, deps.readLog()));
}

}  // namespace

WrittenReport WriteCheckReport(const std::optional<std::wstring>& file, const ReportDeps& deps) {
  const platform::LocalTime time = deps.now();
  const std::string bytes = std::string(kUtf8Mark) + text::ToUtf8(BlackedOutReport(deps, time));
  std::vector<std::wstring> paths;
  if (file) paths.push_back(*file);
  for (const std::wstring& folder : deps.folders) {
    if (file || folder.empty()) continue;
    paths.push_back(platform::JoinPath(folder, L"Velmarine.Check_" + FileTime(time) + L".txt"));
  }
  WrittenReport written;
  for (const std::wstring& path : paths) {
    const std::wstring reason = deps.write(path, bytes);
    if (reason.empty()) {
      deps.open(path);
      return {path, {}};
    }
    if (!written.failure.empty()) written.failure += L"；";
    written.failure.append(path).append(L"：").append(reason);
  }
  return written;
}

std::vector<std::wstring> FindLogFiles(const std::vector<std::wstring>& folders,
                                       const FolderReader& reader) {
  std::vector<LogName> found;
  for (const std::wstring& folder : folders) {
    if (!folder.empty()) AddLogsOf(platform::JoinPath(folder, L"Log"), reader, found);
  }
  std::ranges::stable_sort(found, std::ranges::greater(), &LogName::name);
  std::vector<std::wstring> paths;
  for (const LogName& log : found) {
    if (paths.size() < kMostLogFiles && std::ranges::find(paths, log.path) == paths.end()) {
      paths.push_back(log.path);
    }
  }
  return paths;
}

LogTail ReadLogTail(
    const std::vector<std::wstring>& paths,
    const std::function<std::optional<std::string>(const std::wstring& path)>& readFile) {
  LogTail tail;
  for (const std::wstring& path : paths) {
    if (tail.lines.size() >= kLogLines) break;
    const std::optional<std::string> bytes = readFile(path);
    if (!bytes) continue;
    tail.paths.push_back(path);
    const std::vector<std::wstring> lines = text::SplitLines(text::FromMarkedBytes(*bytes));
    const std::size_t count = std::min(lines.size(), kLogLines - tail.lines.size());
    tail.lines.insert(tail.lines.begin(), lines.end() - static_cast<std::ptrdiff_t>(count),
                      lines.end());
  }
  return tail;
}

}  // namespace checks
