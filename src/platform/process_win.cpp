#include "platform/process_win.h"

#include <cstdlib>

#include "platform/handles_win.h"

namespace platform {
namespace {

struct StartedProcess {
  ProcessHandle process;  // empty when it could not be started
  ThreadHandle thread;
  std::uint32_t errorCode = 0;

  [[nodiscard]] SystemResult Result() const { return {static_cast<bool>(process), errorCode}; }
};

StartedProcess Create(const std::wstring& commandLine, DWORD flags, STARTUPINFOW startup) {
  std::wstring writable = commandLine;  // CreateProcessW may write into it
  startup.cb = sizeof(startup);
  PROCESS_INFORMATION started{};
  StartedProcess result;
  if (!::CreateProcessW(nullptr, writable.data(), nullptr, nullptr, FALSE, flags, nullptr, nullptr,
                        &startup, &started)) {
    result.errorCode = ::GetLastError();
    return result;
  }
  result.process.Reset(started.hProcess);
  result.thread.Reset(started.hThread);
  return result;
}

StartedProcess CreateHidden(const std::wstring& commandLine) {
  STARTUPINFOW startup{};
  startup.dwFlags = STARTF_USESHOWWINDOW;
  startup.wShowWindow = SW_HIDE;
  return Create(commandLine, CREATE_NO_WINDOW, startup);
}

}  // namespace

bool RunHidden(const std::wstring& commandLine, std::chrono::milliseconds wait) {
  const StartedProcess started = CreateHidden(commandLine);
  if (!started.process) return false;
  ::WaitForSingleObject(started.process.Get(), static_cast<DWORD>(wait.count()));
  return true;
}

SystemResult StartProgram(const std::wstring& commandLine) {
  return Create(commandLine, 0, STARTUPINFOW{}).Result();
}

SystemResult StartHiddenProgram(const std::wstring& commandLine) {
  return CreateHidden(commandLine).Result();
}

void WaitForProcessEnd(std::uint32_t processId, std::chrono::milliseconds limit) {
  const ProcessHandle process(::OpenProcess(SYNCHRONIZE, FALSE, processId));
  if (process) ::WaitForSingleObject(process.Get(), static_cast<DWORD>(limit.count()));
}

void RefuseSystemErrorBoxes() noexcept {
  ::SetErrorMode(SEM_FAILCRITICALERRORS | SEM_NOOPENFILEERRORBOX);
}

void EndProcessAtOnce(int exitCode) noexcept {
  ::TerminateProcess(::GetCurrentProcess(), static_cast<UINT>(exitCode));
  std::abort();  // not reached: a process may always end itself
}

}  // namespace platform
