#include "platform/file_swap.h"

#include "platform/handles_win.h"

namespace platform {
namespace {

// A copy lies in the system's cache at first. Returns 0 once the disk has it, or why it may not.
DWORD Flush(const std::wstring& path) {
  const FileHandle file(::CreateFileW(path.c_str(), GENERIC_WRITE,
                                      FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                                      nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
  if (file && ::FlushFileBuffers(file.Get())) return 0;
  return ::GetLastError();
}

}  // namespace

SystemResult CopyFileOver(const std::wstring& from, const std::wstring& to) {
  if (!::CopyFileW(from.c_str(), to.c_str(), FALSE)) {
    const DWORD error = ::GetLastError();
    return {false, error};
  }
  return {true, Flush(to)};
}

SystemResult MoveFileOver(const std::wstring& from, const std::wstring& to) {
  constexpr DWORD kFlags = MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH;
  if (::MoveFileExW(from.c_str(), to.c_str(), kFlags)) return {true, 0};
  const DWORD error = ::GetLastError();
  return {false, error};
}

}  // namespace platform
