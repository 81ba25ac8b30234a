#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "checks/check.h"
#include "platform/computer.h"
#include "platform/files.h"

// The report, from its first check to its file.
namespace checks {

// The contents of a report, and how to read and write them.
struct ReportDeps {
  std::wstring version;
  platform::LocalTime time;
  std::vector<Check> checks;
  std::chrono::milliseconds limit = kCheckLimit;

  // Keys, passwords and ids in these texts, and in all files of the settings folder (damaged ones
  // included), are blacked out.
  std::vector<std::wstring> secretTexts;
  std::wstring settingsFolder;

  std::optional<std::wstring> logPath;   // of a running client
  std::vector<std::wstring> logFolders;  // without it: the parents of folders "Log"

  std::vector<std::wstring> folders;  // for a report without a given path; the first that works
  platform::FileDeps* files = nullptr;
  std::function<void(const std::wstring& path)> open;  // shows the report to the engineer
};

struct WrittenReport {
  std::wstring path;     // empty when none was written
  std::wstring failure;  // the reason, in that case
};

// Runs the checks, writes the report to `file`, or else to "Velmarine.Check_<time>.txt" in the
// first folder that accepts it, and opens it. UTF-8 with a byte-order mark. Changes nothing else.
// Blocks; any thread.
WrittenReport WriteCheckReport(const std::optional<std::wstring>& file, const ReportDeps& deps);

// ---- steps of it

// The newest log files below the folders "Log" in `folders`, newest first, by their names
// ("202603\20260315_094102.log").
std::vector<std::wstring> FindLogFiles(const std::vector<std::wstring>& folders,
                                       platform::FileDeps& files);

struct LogTail {
  std::vector<std::wstring> paths;  // newest first
  std::vector<std::wstring> lines;  // oldest first
};

// The last lines of the log files `paths` (newest first), kLogLines in all.
inline constexpr std::size_t kLogLines = 300;
LogTail ReadLogTail(const std::vector<std::wstring>& paths, platform::FileDeps& files);

// The whole report with lines ended by CRLF: introduction, summary, findings and the log's last
// lines. Secrets are not blacked out yet.
std::wstring ReportText(const std::wstring& version, const platform::LocalTime& time,
                        const std::vector<Finding>& findings, const LogTail& log);

}  // namespace checks
