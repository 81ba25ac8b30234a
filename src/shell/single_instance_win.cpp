#include <memory>
#include <thread>

#include "platform/handles_win.h"
#include "platform/unique_handle.h"
#include "shell/single_instance.h"
// After the SDK, which it needs.
#include <wtsapi32.h>

namespace shell {
namespace {

// In the namespace of all sessions. Creating it requires an administrator's rights.
constexpr wchar_t kMarkName[] = L"Global\\Velmarine.Client.Running";

// Describes the process that holds the mark. Shared with other versions of the program.
struct Mark {
  DWORD isWritten;
  DWORD session;
  wchar_t user[256];  // with a terminator
};

struct ViewTraits {
  using Raw = void*;
  static Raw Invalid() noexcept { return nullptr; }
  static bool IsValid(Raw view) noexcept { return view != nullptr; }
  static void Close(Raw view) noexcept { ::UnmapViewOfFile(view); }
};
using View = platform::UniqueHandle<ViewTraits>;
using MappingHandle = platform::UniqueHandle<platform::KernelHandleTraits>;

DWORD OwnSession() {
  DWORD session = 0;
  ::ProcessIdToSessionId(::GetCurrentProcessId(), &session);
  return session;
}

// The user signed in to this session; the program itself may run as another one.
std::wstring UserOfSession() {
  wchar_t* allocated = nullptr;
  DWORD sizeBytes = 0;
  if (::WTSQuerySessionInformationW(WTS_CURRENT_SERVER_HANDLE, WTS_CURRENT_SESSION, WTSUserName,
                                    &allocated, &sizeBytes) == FALSE) {
    return {};
  }
  const std::unique_ptr<wchar_t, decltype(&::WTSFreeMemory)> owner(allocated, &::WTSFreeMemory);
  return allocated == nullptr ? std::wstring() : std::wstring(allocated);
}

void WriteMark(HANDLE mapping) {
  const View view(::MapViewOfFile(mapping, FILE_MAP_WRITE, 0, 0, sizeof(Mark)));
  if (!view) return;
  auto& mark = *static_cast<Mark*>(view.Get());
  mark.session = OwnSession();
  // The section starts as zeros, so a name that is cut short is terminated.
  UserOfSession().copy(mark.user, std::size(mark.user) - 1);
  // Last: another start may be reading.
  mark.isWritten = 1;
}

RunningClient ReadMark(HANDLE mapping) {
  RunningClient running;
  const View view(::MapViewOfFile(mapping, FILE_MAP_READ, 0, 0, sizeof(Mark)));
  if (!view) return running;
  const auto& mark = *static_cast<const Mark*>(view.Get());
  // A client that has not written it yet has only just started, most likely by a second click.
  running.isInThisSession = mark.isWritten == 0 || mark.session == OwnSession();
  running.user = mark.user;
  return running;
}

}  // namespace

RunningClient InstanceSystem::Claim() {
  MappingHandle mapping(::CreateFileMappingW(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0,
                                             sizeof(Mark), kMarkName));
  const DWORD error = ::GetLastError();
  if (!mapping) {
    RunningClient running;
    // Refused: another user's client holds the mark. Any other error must not prevent the start.
    running.isMine = error != ERROR_ACCESS_DENIED;
    return running;
  }
  if (error == ERROR_ALREADY_EXISTS) return ReadMark(mapping.Get());
  WriteMark(mapping.Get());
  static_cast<void>(mapping.Release());  // the system closes it with the process
  return {true, true, {}};
}

bool InstanceSystem::BringToFront() {
  const HWND window = ::FindWindowW(windowClass_, nullptr);
  // A window is hidden before it is destroyed.
  if (window == nullptr || ::IsWindowVisible(window) == FALSE) return false;
  // Async: a window that hangs must not hang this start.
  if (::IsIconic(window) != FALSE) ::ShowWindowAsync(window, SW_RESTORE);
  // Windows may refuse and only flash the task bar; the engineer sees that too.
  ::SetForegroundWindow(window);
  return true;
}

void InstanceSystem::Pause(std::chrono::milliseconds time) {
  std::this_thread::sleep_for(time);
}

void InstanceSystem::ShowMessage(const std::wstring& text) {
  ::MessageBoxW(nullptr, text.c_str(), windowTitle_, MB_OK | MB_ICONINFORMATION);
}

bool IsClientRunning() {
  const MappingHandle mapping(::OpenFileMappingW(FILE_MAP_READ, FALSE, kMarkName));
  const DWORD error = ::GetLastError();
  return static_cast<bool>(mapping) || error == ERROR_ACCESS_DENIED;  // another user's
}

}  // namespace shell
