#include <array>

#include "platform/files.h"
#include "platform/path.h"
#include "platform/user_folders_win.h"
#include "platform/windows_sdk.h"
#include "shell/log_file.h"

namespace shell {
namespace {

// Never destroyed: a thread that the end of the process overtakes may still be logging.
LogFile& ProcessLog() {
  static LogFile& log = *new LogFile(RealLogPorts());
  return log;
}

}  // namespace

std::wstring LogBaseFolder() {
  std::array<wchar_t, MAX_PATH> buffer{};
  const DWORD lengthUnits =
      ::GetCurrentDirectoryW(static_cast<DWORD>(buffer.size()), buffer.data());
  if (lengthUnits == 0 || lengthUnits >= buffer.size()) return platform::ProgramFolder();
  return std::wstring(buffer.data(), lengthUnits);
}

LogPorts RealLogPorts() {
  LogPorts ports;
  ports.now = platform::LocalTimeNow;
  ports.baseFolder = LogBaseFolder;
  // "Log", the month and the file: the folder that holds them is whatever the user works in.
  constexpr int kOwnParts = 3;
  ports.createFolders = [](const std::wstring& folder) {
    platform::CreateUnlinkedFolders(folder, kOwnParts - 1);
  };
  ports.append = [](const std::wstring& path, std::string_view mark, std::string_view line) {
    platform::AppendToFile(path, kOwnParts, mark, line);
  };
  return ports;
}

void StartLog() {
  ProcessLog().Start();
}

void WriteLogLine(std::wstring_view text) {
  ProcessLog().WriteLine(text);
}

std::wstring LogPath() {
  return ProcessLog().Path();
}

}  // namespace shell
