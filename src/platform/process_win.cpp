#include "platform/process_win.h"

#include <cstdlib>
#include <vector>

#include "platform/handles_win.h"
#include "text/strings.h"
// After the SDK, which it needs.
#include <delayimp.h>

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
  // No handles are inherited: the child would keep our files and sockets open.
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

struct EnvironmentTraits {
  using Raw = wchar_t*;
  static Raw Invalid() noexcept { return nullptr; }
  static bool IsValid(Raw block) noexcept { return block != nullptr; }
  static void Close(Raw block) noexcept { ::FreeEnvironmentStringsW(block); }
};
using Environment = UniqueHandle<EnvironmentTraits>;

// The hook for libraries that are imported late (cmake/delayed_imports.cmake); called at each step.
FARPROC WINAPI LoadFromSystemFolder(unsigned step, DelayLoadInfo* info) {
  // nullptr leaves the step to the helper.
  if (step != dliNotePreLoadLibrary) return nullptr;
  return reinterpret_cast<FARPROC>(reinterpret_cast<void*>(
      ::LoadLibraryExA(info->szDll, nullptr, LOAD_LIBRARY_SEARCH_SYSTEM32)));
}

// Passes the flags as one DWORD, the documented size: some of mingw-w64's structures are longer.
void SetPolicy(PROCESS_MITIGATION_POLICY kind, DWORD flags) noexcept {
  // Failures are ignored: older versions of Windows lack some of the policies.
  ::SetProcessMitigationPolicy(kind, &flags, sizeof(flags));
}

}  // namespace

bool RunHidden(const std::wstring& commandLine, std::chrono::milliseconds wait) {
  const StartedProcess started = CreateHidden(commandLine);
  if (!started.process) return false;
  // A command that hangs must not hang the program; after the wait it keeps running.
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
  // An empty drive D:, where RustDesk is looked for, could block the thread with a "no disk" box.
  ::SetErrorMode(SEM_FAILCRITICALERRORS | SEM_NOOPENFILEERRORBOX);
}

void EndProcessAtOnce(int exitCode) noexcept {
  ::TerminateProcess(::GetCurrentProcess(), static_cast<UINT>(exitCode));
  std::abort();  // not reached: a process may always end itself
}

void LimitLibrarySearch() noexcept {
  // The delay-load helper calls LoadLibrary with a bare name; the hook replaces that call.
  __pfnDliNotifyHook2 = &LoadFromSystemFolder;
  ::SetDefaultDllDirectories(LOAD_LIBRARY_SEARCH_SYSTEM32 | LOAD_LIBRARY_SEARCH_USER_DIRS);
}

void RefuseForeignLibraries() noexcept {
  constexpr DWORD kDisableExtensionPoints = 1;
  SetPolicy(ProcessExtensionPointDisablePolicy, kDisableExtensionPoints);

  constexpr DWORD kNoRemoteImages = 1;
  constexpr DWORD kNoLowMandatoryLabelImages = 2;
  constexpr DWORD kPreferSystem32Images = 4;
  SetPolicy(ProcessImageLoadPolicy,
            kNoRemoteImages | kNoLowMandatoryLabelImages | kPreferSystem32Images);
}

void ForbidDynamicCode() noexcept {
  constexpr DWORD kProhibitDynamicCode = 1;
  SetPolicy(ProcessDynamicCodePolicy, kProhibitDynamicCode);
}

void ForgetVariables(std::wstring_view prefix) {
  const Environment block(::GetEnvironmentStringsW());
  if (!block) return;
  const std::wstring wanted = text::FoldCase(prefix);
  std::vector<std::wstring> names;
  for (std::wstring_view entry = block.Get(); !entry.empty();
       entry = std::wstring_view(entry.data() + entry.size() + 1)) {
    // The working folder of a drive ("=C:=C:\tools") has an empty name here and stays.
    const std::wstring name(entry.substr(0, entry.find(L'=')));
    if (text::FoldCase(name).starts_with(wanted)) names.push_back(name);
  }
  for (const std::wstring& name : names) ::SetEnvironmentVariableW(name.c_str(), nullptr);
}

}  // namespace platform
