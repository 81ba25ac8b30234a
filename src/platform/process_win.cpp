#include "platform/process_win.h"

#include "platform/handles_win.h"

namespace platform {

bool RunHidden(const std::wstring& commandLine, std::chrono::milliseconds wait) {
  std::wstring writable = commandLine;  // CreateProcessW may write into it
  STARTUPINFOW startup{};
  startup.cb = sizeof(startup);
  startup.dwFlags = STARTF_USESHOWWINDOW;
  startup.wShowWindow = SW_HIDE;
  PROCESS_INFORMATION started{};
  if (!::CreateProcessW(nullptr, writable.data(), nullptr, nullptr, FALSE, CREATE_NO_WINDOW,
                        nullptr, nullptr, &startup, &started)) {
    return false;
  }
  const ProcessHandle process(started.hProcess);
  const ThreadHandle thread(started.hThread);
  ::WaitForSingleObject(process.Get(), static_cast<DWORD>(wait.count()));
  return true;
}

}  // namespace platform
