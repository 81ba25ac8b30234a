#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/get_proc_address.h"
#include "platform/windows_sdk.h"
// After the SDK, which they need.
#include <commctrl.h>
#include <shellapi.h>

#include "shell/app_state.h"
#include "shell/command_line.h"
#include "shell/log_file.h"
#include "shell/main_window.h"
#include "shell/runtime_files_win.h"
#include "shell/surroundings.h"
#include "tunnel/session_win.h"
#include "update/apply_update.h"

namespace {

using namespace shell;

// The build names it, here and in the version resource.
constexpr wchar_t kVersion[] = VELMARINE_VERSION;

// As sharp as each monitor allows; the older call where the newer one is missing or refused.
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

int RunClient(HINSTANCE instance, int showCommand) {
  InitialiseCommonControls();
  StartLog();
  WriteLogLine(std::wstring(kWindowTitle) + L" starting. Log file: " + LogPath());
  LayOutRuntimeFiles();
  AppState state(RealSurroundings(kVersion), settings::RealSettingsFile(),
                 tunnel::MakeRealTunnel());
  RegisterMainWindow(instance);
  const HWND window = CreateMainWindow(instance, state);
  if (window == nullptr) return 1;
  ShowMainWindow(instance, window, showCommand);
  return RunMessageLoop();
}

}  // namespace

// -municode takes this for the program's entry. What an exception here would mean, short memory
// before there is a window, ends the program.
int WINAPI wWinMain(HINSTANCE instance, HINSTANCE, LPWSTR, int showCommand) {
  BecomeDpiAware();
  if (const auto request = ParseApplyUpdate(CommandLineArguments())) {
    return update::ApplyUpdate(request->parentPid, request->source, request->destination,
                               update::RealApplyPorts(StartLog));
  }
  return RunClient(instance, showCommand);
}
