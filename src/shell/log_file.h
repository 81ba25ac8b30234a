#pragma once

#include <functional>
#include <mutex>
#include <string>
#include <string_view>

#include "platform/computer.h"

// The log: one plain-text file per run, which is opened by name for every line, so that it can be
// read or copied while the program runs. Nothing here reports an error; a line that cannot be
// written is lost.
namespace shell {

using platform::LocalTime;

// What a log acts through: the system, or fakes in tests. None of them may fail loudly.
struct LogPorts {
  std::function<LocalTime()> now;
  // The folder that holds "Log".
  std::function<std::wstring()> baseFolder;
  std::function<void(const std::wstring& folder)> createFolders;
  // Appends `line` to the file at `path`; a file that did not exist begins with `mark`.
  std::function<void(const std::wstring& path, std::string_view mark, std::string_view line)>
      append;
};

// One run's log.
//
// Threads: any; a line is never cut by another. The lock is recursive, so that what a line calls
//          may itself log.
class LogFile {
 public:
  explicit LogFile(LogPorts ports) : ports_(std::move(ports)) {}

  // Names the file after the present moment, "<base>\Log\YYYYMM\YYYYMMDD_HHMMSS.log", and makes its
  // folder. Only the first call counts.
  void Start();
  // Appends "[HH:MM:SS] ", `text` and CRLF in UTF-8; line breaks inside `text` stay as they are.
  // Does nothing before Start(). A run that crosses midnight stays with its file.
  void WriteLine(std::wstring_view text);
  // Empty before Start().
  [[nodiscard]] std::wstring Path() const;

 private:
  const LogPorts ports_;
  mutable std::recursive_mutex lock_;  // guards path_ and the writing of the file
  std::wstring path_;
};

// The system's clock and files; the log lies below the current folder, or the program's own where
// that cannot be told in 259 characters. Windows only.
LogPorts RealLogPorts();

// The one log of the process, for any thread. Windows only.
void StartLog();
void WriteLogLine(std::wstring_view text);
std::wstring LogPath();
// The folder that holds "Log"; it need not have one. Windows only.
std::wstring LogBaseFolder();

}  // namespace shell
