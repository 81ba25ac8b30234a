#include <array>

#include "platform/files.h"
#include "platform/handles_win.h"
#include "platform/known_folders.h"
#include "platform/windows_sdk.h"
#include "shell/log_file.h"

namespace shell {
namespace {

LocalTime SystemLocalTime() {
  SYSTEMTIME now = {};
  ::GetLocalTime(&now);
  return {now.wYear, now.wMonth, now.wDay, now.wHour, now.wMinute, now.wSecond};
}

std::wstring LogBaseFolder() {
  std::array<wchar_t, MAX_PATH> buffer{};
  const DWORD lengthUnits =
      ::GetCurrentDirectoryW(static_cast<DWORD>(buffer.size()), buffer.data());
  if (lengthUnits == 0 || lengthUnits >= buffer.size()) return platform::ProgramFolder();
  return std::wstring(buffer.data(), lengthUnits);
}

void Write(const platform::FileHandle& file, std::string_view bytes) {
  DWORD writtenBytes = 0;
  ::WriteFile(file.Get(), bytes.data(), static_cast<DWORD>(bytes.size()), &writtenBytes, nullptr);
}

void AppendToFile(const std::wstring& path, std::string_view mark, std::string_view line) {
  // CreateFile resets the last error when it makes the file, and says when it did not have to.
  const platform::FileHandle file(::CreateFileW(path.c_str(), FILE_APPEND_DATA, FILE_SHARE_READ,
                                                nullptr, OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL,
                                                nullptr));
  const bool existed = ::GetLastError() == ERROR_ALREADY_EXISTS;
  if (!file) return;
  if (!existed) Write(file, mark);
  Write(file, line);
}

// Never destroyed: a thread that the end of the process overtakes may still be logging.
LogFile& ProcessLog() {
  static LogFile& log = *new LogFile(RealLogPorts());
  return log;
}

}  // namespace

LogPorts RealLogPorts() {
  LogPorts ports;
  ports.now = SystemLocalTime;
  ports.baseFolder = LogBaseFolder;
  ports.createFolders = [](const std::wstring& folder) { platform::CreateFolders(folder); };
  ports.append = AppendToFile;
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
