#pragma once

#include <chrono>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "checks/report_text.h"
#include "checks/run_checks.h"
#include "platform/computer.h"

// The report from its first check to its file. Writes nothing else and changes nothing.
namespace checks {

// What the report is made from and where it goes: this computer, or a test's.
struct ReportDeps {
  std::wstring version;
  std::function<std::vector<Check>()> makeChecks;
  std::chrono::milliseconds limit = kCheckLimit;
  std::function<platform::LocalTime()> now;
  // All texts that hold keys, passwords and ids: settings files whole and damaged, and the record.
  std::function<std::vector<std::wstring>()> secretTexts;
  std::function<LogTail()> readLog;
  std::vector<std::wstring> folders;  // where a report without a file of its own goes; first wins
  // Replaces or makes the file. Returns nothing when that worked, else the system's reason.
  std::function<std::wstring(const std::wstring& path, const std::string& bytes)> write;
  std::function<void(const std::wstring& path)> open;  // shows it to the engineer
};

struct WrittenReport {
  std::wstring path;     // empty when none was written
  std::wstring failure;  // then why
};

// Runs the checks and writes the report to `file`, or else to "Velmarine.Check_<time>.txt" in the
// first folder that takes it, and opens it. UTF-8 with a byte-order mark. Blocks; any thread.
WrittenReport WriteCheckReport(const std::optional<std::wstring>& file, const ReportDeps& deps);

// The newest log files below the folders "Log" in `folders`, newest first, by their names
// ("202603\20260315_094102.log").
struct FolderReader {
  std::function<std::vector<std::wstring>(const std::wstring& folder)> listFolders;
  std::function<std::vector<std::wstring>(const std::wstring& folder)> listFiles;
};
std::vector<std::wstring> FindLogFiles(const std::vector<std::wstring>& folders,
                                       const FolderReader& reader);

// The last lines of the log files `paths` (newest first), kLogLines in all.
inline constexpr std::size_t kLogLines = 300;
LogTail ReadLogTail(
    const std::vector<std::wstring>& paths,
    const std::function<std::optional<std::string>(const std::wstring& path)>& readFile);

}  // namespace checks
