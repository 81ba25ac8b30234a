#include <array>

#include "platform/files.h"
#include "platform/path.h"
#include "platform/user_folders_win.h"
#include "platform/windows_sdk.h"
#include "shell/log_file.h"

namespace shell {
namespace {

// "Log", the month and the file. The folder above them is the user's current one and may well be
// reached through a link.
constexpr int kOwnParts = 3;

// Never destroyed: a thread may still be logging when the process ends.
LogFile& ProcessLog() {
  static LogFile& log = *new LogFile(platform::LocalTimeNow, AppendToLog);
  return log;
}

}  // namespace

std::wstring LogBaseFolder() {
  std::array<wchar_t, MAX_PATH> buffer{};
  const DWORD lengthUnits =
      ::GetCurrentDirectoryW(static_cast<DWORD>(buffer.size()), buffer.data());
  // For a longer path Windows returns the size that it needs.
  if (lengthUnits == 0 || lengthUnits >= buffer.size()) return platform::ProgramFolder();
  return std::wstring(buffer.data(), lengthUnits);
}

void CreateLogFolders(const std::wstring& folder) {
  platform::CreateUnlinkedFolders(folder, kOwnParts - 1);
}

void AppendToLog(const std::wstring& path, std::string_view mark, std::string_view line) {
  platform::AppendToFile(path, kOwnParts, mark, line);
}

void StartLog() {
  ProcessLog().Start(LogBaseFolder(), CreateLogFolders);
}

void WriteLogLine(std::wstring_view text) {
  ProcessLog().WriteLine(text);
}

std::wstring LogPath() {
  return ProcessLog().Path();
}

}  // namespace shell
