#include "shell/start_up.h"

#include "platform/modules_win.h"
// After the SDK, which they need.
#include <commctrl.h>
#include <shellapi.h>

#include "shell/main_window.h"

namespace shell {
namespace {

void InitialiseCommonControls() {
  const INITCOMMONCONTROLSEX controls{sizeof(controls), ICC_STANDARD_CLASSES};
  ::InitCommonControlsEx(&controls);
}

int RunMessageLoop() {
  MSG message{};
  // For all windows: with a filter, WebView2's callbacks would not arrive. -1 is a failure and
  // ends the loop too.
  while (::GetMessageW(&message, nullptr, 0, 0) > 0) {
    ::TranslateMessage(&message);
    ::DispatchMessageW(&message);
  }
  return static_cast<int>(message.wParam);
}

}  // namespace

void BecomeDpiAware() {
  using SetContext = BOOL(WINAPI*)(HANDLE context);
  // DPI_AWARENESS_CONTEXT_PER_MONITOR_AWARE_V2. The call is missing before Windows 10 version 1703.
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

int RunClient(HINSTANCE instance, int showCommand, const std::shared_ptr<WindowDeps>& deps) {
  InitialiseCommonControls();
  const std::wstring logPath = deps->StartLog();
  deps->WriteLogLine(std::wstring(kWindowTitle) + L" starting. Log file: " + logPath);
  // Before the window: the tunnel loads the driver's library from where these files lie.
  const std::wstring foreign = deps->LayOutRuntimeFiles();
  if (!foreign.empty()) deps->WriteLogLine(foreign);
  // Declared here to outlive the window and its messages.
  MainWindow main(deps);
  RegisterMainWindow(instance);
  const HWND window = CreateMainWindow(instance, main);
  if (window == nullptr) return 1;
  ShowMainWindow(instance, window, showCommand);
  return RunMessageLoop();
}

}  // namespace shell
