#include "shell/start_up.h"

#include "platform/handles_win.h"
#include "platform/modules_win.h"
// After the SDK, which they need.
#include <commctrl.h>
#include <shellapi.h>

#include "shell/log_file.h"
#include "shell/main_window.h"
#include "shell/runtime_files_win.h"
#include "shell/surroundings.h"
#include "tunnel/tunnel.h"

namespace shell {
namespace {

void InitialiseCommonControls() {
  const INITCOMMONCONTROLSEX controls{sizeof(controls), ICC_STANDARD_CLASSES};
  ::InitCommonControlsEx(&controls);
}

int RunMessageLoop() {
  MSG message{};
  while (::GetMessageW(&message, nullptr, 0, 0) > 0) {
    ::TranslateMessage(&message);
    ::DispatchMessageW(&message);
  }
  return static_cast<int>(message.wParam);
}

}  // namespace

StartUpDeps RealStartUp(const update::ProgramIdentity& self) {
  StartUpDeps deps;
  deps.startLog = [] {
    StartLog();
    return LogPath();
  };
  deps.writeLogLine = WriteLogLine;
  // As long as the client runs.
  deps.layOutRuntimeFiles = [hold = std::make_shared<platform::FileHandle>()] {
    return LayOutRuntimeFiles(*hold);
  };
  deps.makeState = [self] {
    return std::make_unique<AppState>(RealSurroundings(self), settings::RealSettingsFile(),
                                      tunnel::MakeRealTunnel());
  };
  return deps;
}

void BecomeDpiAware() {
  using SetContext = BOOL(WINAPI*)(HANDLE context);
  const HANDLE perMonitorV2 = reinterpret_cast<HANDLE>(static_cast<INT_PTR>(-4));
  const auto setContext = platform::GetProcAddressAs<SetContext>(::GetModuleHandleW(L"user32.dll"),
                                                                 "SetProcessDpiAwarenessContext");
  if (setContext == nullptr || setContext(perMonitorV2) == FALSE) ::SetProcessDPIAware();
}

std::vector<std::wstring> CommandLineArguments() {
  int count = 0;
  const std::unique_ptr<LPWSTR[], decltype(&::LocalFree)> parts(
      ::CommandLineToArgvW(::GetCommandLineW(), &count), &::LocalFree);
  if (!parts) return {};
  return std::vector<std::wstring>(parts.get(), parts.get() + count);
}

int RunClient(HINSTANCE instance, int showCommand, const StartUpDeps& deps) {
  InitialiseCommonControls();
  const std::wstring logPath = deps.startLog();
  deps.writeLogLine(std::wstring(kWindowTitle) + L" starting. Log file: " + logPath);
  // Before the window: the tunnel loads the driver's library from where these files lie.
  const std::wstring foreign = deps.layOutRuntimeFiles();
  if (!foreign.empty()) deps.writeLogLine(foreign);
  const std::unique_ptr<AppState> state = deps.makeState();
  RegisterMainWindow(instance);
  const HWND window = CreateMainWindow(instance, *state);
  if (window == nullptr) return 1;
  ShowMainWindow(instance, window, showCommand);
  return RunMessageLoop();
}

}  // namespace shell
