// A minimal Windows program with a window: the anchor for the client's costs.
// Usage: bare_window.exe [TITLE]
// Prints "shown" once its window has been painted for the first time. Runs until ended.
#include <windows.h>

#include <cstdio>

namespace {

LRESULT CALLBACK Procedure(HWND window, UINT message, WPARAM wide, LPARAM extra) noexcept {
  static bool isShown = false;
  const LRESULT result = ::DefWindowProcW(window, message, wide, extra);
  if (message == WM_PAINT && !isShown) {
    isShown = true;
    std::puts("shown");
    std::fflush(stdout);
  }
  return result;
}

}  // namespace

int wmain(int count, wchar_t** arguments) {
  WNDCLASSW type{};
  type.lpfnWndProc = &Procedure;
  type.hInstance = ::GetModuleHandleW(nullptr);
  type.lpszClassName = L"LabBareWindow";
  type.hbrBackground = ::GetSysColorBrush(COLOR_WINDOW);
  ::RegisterClassW(&type);
  const HWND window = ::CreateWindowW(type.lpszClassName, count > 1 ? arguments[1] : L"bare window",
                                      WS_OVERLAPPEDWINDOW, CW_USEDEFAULT, CW_USEDEFAULT, 1200, 850,
                                      nullptr, nullptr, type.hInstance, nullptr);
  if (window == nullptr) return 1;
  ::ShowWindow(window, SW_SHOW);
  ::UpdateWindow(window);
  MSG message;
  while (::GetMessageW(&message, nullptr, 0, 0) > 0) ::DispatchMessageW(&message);
  return 0;
}
