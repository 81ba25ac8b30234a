// An ordinary program with a window, which is notified of changed system settings.
// Usage: setting_watch.exe [BUSY_MS]
// Prints "ready", then a line for each WM_SETTINGCHANGE: "setting change, wParam N: TEXT". With
// BUSY_MS it takes that long for each message. Runs until it is ended.
#include <windows.h>

#include <cstdio>
#include <cstdlib>
#include <string>

namespace {

DWORD busyMs = 0;

std::string Utf8(const wchar_t* text) {
  if (text == nullptr) return {};
  const int sizeBytes = ::WideCharToMultiByte(CP_UTF8, 0, text, -1, nullptr, 0, nullptr, nullptr);
  if (sizeBytes <= 1) return {};
  std::string bytes(static_cast<size_t>(sizeBytes), '\0');
  ::WideCharToMultiByte(CP_UTF8, 0, text, -1, bytes.data(), sizeBytes, nullptr, nullptr);
  bytes.pop_back();  // the zero
  return bytes;
}

LRESULT CALLBACK Procedure(HWND window, UINT message, WPARAM wide, LPARAM extra) noexcept {
  if (message != WM_SETTINGCHANGE) return ::DefWindowProcW(window, message, wide, extra);
  std::printf("setting change, wParam %llu: %s\n", static_cast<unsigned long long>(wide),
              Utf8(reinterpret_cast<const wchar_t*>(extra)).c_str());
  std::fflush(stdout);
  ::Sleep(busyMs);
  return 0;
}

}  // namespace

int main(int count, char** arguments) {
  if (count > 1) busyMs = static_cast<DWORD>(std::strtoul(arguments[1], nullptr, 10));
  WNDCLASSW type{};
  type.lpfnWndProc = &Procedure;
  type.hInstance = ::GetModuleHandleW(nullptr);
  type.lpszClassName = L"LabSettingWatch";
  ::RegisterClassW(&type);
  // Top-level, though never shown: broadcasts reach only top-level windows.
  if (::CreateWindowW(type.lpszClassName, L"lab setting watch", WS_OVERLAPPED, 0, 0, 1, 1, nullptr,
                      nullptr, type.hInstance, nullptr) == nullptr) {
    return 1;
  }
  std::printf("ready\n");
  std::fflush(stdout);
  MSG message;
  while (::GetMessageW(&message, nullptr, 0, 0) > 0) ::DispatchMessageW(&message);
  return 0;
}
