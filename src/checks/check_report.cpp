#include "checks/check_report.h"

#include <algorithm>
#include <string_view>

#include "checks/secrets.h"
#include "platform/path.h"
#include "settings/settings_file.h"
#include "text/strings.h"
#include "text/utf8.h"

namespace checks {
namespace {

constexpr std::string_view kUtf8Mark = "\xEF\xBB\xBF";
constexpr std::size_t kMaxLogFiles = 3;

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

void AddLogsOf(const std::wstring& root, platform::FileDeps& files, std::vector<LogName>& found) {
  for (const std::wstring& month : files.ListFolders(root)) {
    // A folder for each month, such as "202603".
    if (month.size() != 6 || !IsDigits(month)) continue;
    const std::wstring folder = platform::JoinPath(root, month);
    for (const std::wstring& name : files.ListFiles(folder)) {
      if (IsLogName(name)) found.push_back({name, platform::JoinPath(folder, name)});
    }
  }
}

Secrets FindSecrets(const ReportDeps& deps) {
  Secrets secrets;
  for (const std::wstring& name : deps.files->ListFiles(deps.settingsFolder)) {
    const auto bytes = deps.files->Read(platform::JoinPath(deps.settingsFolder, name)).bytes;
    // Every file of the folder: those set aside as damaged hold the same keys.
    if (bytes) secrets.LearnFrom(text::FromMarkedBytes(*bytes));
  }
  // A running client's record may hold a key that no file has yet.
  for (const std::wstring& text : deps.secretTexts) secrets.LearnFrom(text);
  return secrets;
}

LogTail ReadLog(const ReportDeps& deps) {
  // A running client knows its own log; only otherwise are the newest files searched.
  if (deps.logPath) return ReadLogTail({*deps.logPath}, *deps.files);
  return ReadLogTail(FindLogFiles(deps.logFolders, *deps.files), *deps.files);
}

std::wstring BlackedOutReport(const ReportDeps& deps) {
  const std::vector<Finding> findings = RunChecks(deps.checks, deps.limit);
  // Only now: a client that runs beside the checks may save a new id and write it to its log.
  const Secrets secrets = FindSecrets(deps);
  return secrets.BlackOut(ReportText(deps.version, deps.time, findings, ReadLog(deps)));
}

std::vector<std::wstring> ReportPaths(const std::optional<std::wstring>& file,
                                      const ReportDeps& deps) {
  if (file) return {*file};
  const std::wstring name = L"Velmarine.Check_" + settings::FileTime(deps.time) + L".txt";
  std::vector<std::wstring> paths;
  for (const std::wstring& folder : deps.folders) {
    if (!folder.empty()) paths.push_back(platform::JoinPath(folder, name));
  }
  return paths;
}

}  // namespace

WrittenReport WriteCheckReport(const std::optional<std::wstring>& file, const ReportDeps& deps) {
  const std::string bytes = std::string(kUtf8Mark) + text::ToUtf8(BlackedOutReport(deps));
  WrittenReport written;
  for (const std::wstring& path : ReportPaths(file, deps)) {
    // The first folder that accepts the report gets it; the failures before are not reported then.
    const std::wstring reason = deps.files->Write(path, bytes);
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
                                       platform::FileDeps& files) {
  std::vector<LogName> found;
  for (const std::wstring& folder : folders) {
    if (!folder.empty()) AddLogsOf(platform::JoinPath(folder, L"Log"), files, found);
  }
  // The names are times, so that their order is that of the logs.
  std::ranges::stable_sort(found, std::ranges::greater(), &LogName::name);
  std::vector<std::wstring> paths;
  for (const LogName& log : found) {
    // Working folder and program folder may be the same, and their logs then appear twice.
    if (paths.size() < kMaxLogFiles && std::ranges::find(paths, log.path) == paths.end()) {
      paths.push_back(log.path);
    }
  }
  return paths;
}

LogTail ReadLogTail(const std::vector<std::wstring>& paths, platform::FileDeps& files) {
  LogTail tail;
  for (const std::wstring& path : paths) {
    if (tail.lines.size() >= kLogLines) break;
    const std::optional<std::string> bytes = files.Read(path).bytes;
    if (!bytes) continue;
    tail.paths.push_back(path);
    const std::vector<std::wstring> lines = text::SplitLines(text::FromMarkedBytes(*bytes));
    const std::size_t count = std::min(lines.size(), kLogLines - tail.lines.size());
    // The files come newest first, the lines of the report oldest first.
    tail.lines.insert(tail.lines.begin(), lines.end() - static_cast<std::ptrdiff_t>(count),
                      lines.end());
  }
  return tail;
}

}  // namespace checks
