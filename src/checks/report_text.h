#pragma once

#include <string>
#include <vector>

#include "checks/finding.h"
#include "platform/computer.h"

// The wording of the report. Pure.
namespace checks {

struct LogTail {
  std::vector<std::wstring> paths;  // newest first
  std::vector<std::wstring> lines;  // oldest first
};

// "20260315_094102", as names of files have it.
std::wstring FileTime(const platform::LocalTime& time);

// The whole report, lines ended by CRLF: what it is and what it hides, a summary, each finding, and
// the log's last lines. Nothing is blacked out yet.
std::wstring ReportText(const std::wstring& version, const platform::LocalTime& time,
                        const std::vector<Finding>& findings, const LogTail& log);

}  // namespace checks
