#pragma once

#include <functional>
#include <mutex>
#include <string>
#include <string_view>
#include <utility>

#include "platform/computer.h"

// The log: one plain-text file per run. It is opened for each line, so that it can be read or
// copied while the program runs. Errors are not reported; a line that cannot be written is lost.
namespace shell {

using platform::LocalTime;

// One run's log.
//
// Threads: any; lines are written one at a time. The lock is recursive: appending a line may log
//          another one.
class LogFile {
 public:
  // Appends `line` to the file at `path`; a new file starts with `mark`. Must not throw.
  using Append =
      std::function<void(const std::wstring& path, std::string_view mark, std::string_view line)>;

  // `now` is read under the lock, so that times never run backwards.
  LogFile(LocalTime (*now)(), Append append) : now_(now), append_(std::move(append)) {}

  // Names the file "<base>\Log\YYYYMM\YYYYMMDD_HHMMSS.log" and creates its folder. Only the first
  // call counts.
  void Start(const std::wstring& base,
             const std::function<void(const std::wstring& folder)>& createFolders);
  // Appends "[HH:MM:SS] ", `text` and CRLF in UTF-8; line breaks inside `text` stay as they are.
  // Does nothing before Start(). A run that crosses midnight keeps its file.
  void WriteLine(std::wstring_view text);
  // Empty before Start().
  [[nodiscard]] std::wstring Path() const;

 private:
  LocalTime (*const now_)();
  const Append append_;
  mutable std::recursive_mutex lock_;  // guards path_ and writing
  std::wstring path_;
};

// ---- the process's one log; any thread; Windows only

void StartLog();
void WriteLogLine(std::wstring_view text);
std::wstring LogPath();
// The folder for "Log": the current one, or the program's own when that path exceeds 259
// characters.
std::wstring LogBaseFolder();
// Creates `folder`, and appends to the file at `path`, where no link leads elsewhere.
void CreateLogFolders(const std::wstring& folder);
void AppendToLog(const std::wstring& path, std::string_view mark, std::string_view line);

}  // namespace shell
