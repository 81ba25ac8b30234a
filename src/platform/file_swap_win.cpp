#include "platform/file_swap.h"

#include "platform/windows_sdk.h"

namespace platform {

SystemResult CopyFileOver(const std::wstring& from, const std::wstring& to) {
  if (::CopyFileW(from.c_str(), to.c_str(), FALSE)) return {true, 0};
  const DWORD error = ::GetLastError();
  return {false, error};
}

SystemResult MoveFileOver(const std::wstring& from, const std::wstring& to) {
  constexpr DWORD kFlags = MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH;
  if (::MoveFileExW(from.c_str(), to.c_str(), kFlags)) return {true, 0};
  const DWORD error = ::GetLastError();
  return {false, error};
}

}  // namespace platform
