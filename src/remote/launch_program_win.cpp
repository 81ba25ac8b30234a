#include "platform/handles_win.h"
#include "remote/launch_program.h"
// After the SDK, which it needs.
#include <shellapi.h>

namespace remote {

void LaunchProgram(const std::wstring& exePath, std::span<const std::wstring> arguments) {
  const std::wstring parameters = JoinArguments(arguments);
  SHELLEXECUTEINFOW info{};
  info.cbSize = sizeof(info);
  info.fMask = SEE_MASK_NOCLOSEPROCESS;
  info.lpFile = exePath.c_str();
  info.lpParameters = parameters.empty() ? nullptr : parameters.c_str();
  info.nShow = SW_SHOWNORMAL;
  ::ShellExecuteExW(&info);
  const platform::ProcessHandle closedAtOnce(info.hProcess);
}

}  // namespace remote
