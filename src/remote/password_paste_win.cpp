#include <exception>
#include <thread>

#include "platform/clipboard.h"
#include "platform/windows_sdk.h"
#include "remote/desktop_session.h"
#include "remote/password_paste.h"

namespace remote {
namespace {

struct WindowSearch {
  std::wstring needle;
  HWND found = nullptr;
};

std::wstring TitleOf(HWND window) {
  const int lengthUnits = ::GetWindowTextLengthW(window);
  if (lengthUnits <= 0) return {};
  std::wstring title(static_cast<std::size_t>(lengthUnits), L'\0');
  const int takenUnits = ::GetWindowTextW(window, title.data(), lengthUnits + 1);
  title.resize(static_cast<std::size_t>(takenUnits));
  return title;
}

// FALSE ends the enumeration.
BOOL CALLBACK LookAtWindow(HWND window, LPARAM lParam) noexcept {
  auto& search = *reinterpret_cast<WindowSearch*>(lParam);
  try {
    if (!::IsWindowVisible(window) || ::GetWindow(window, GW_OWNER) != nullptr) return TRUE;
    if (!IsRustDeskTitle(TitleOf(window), search.needle)) return TRUE;
    search.found = window;
    return FALSE;
  } catch (const std::exception&) {
    return TRUE;  // memory is short; the next window may have a shorter title
  }
}

void* FindRustDeskWindow(const std::wstring& rustDeskId) {
  WindowSearch search{rustDeskId};
  ::EnumWindows(LookAtWindow, reinterpret_cast<LPARAM>(&search));
  return search.found;
}

void SendKey(std::uint16_t virtualKey, bool isDown) {
  INPUT input{};
  input.type = INPUT_KEYBOARD;
  input.ki.wVk = virtualKey;
  input.ki.dwFlags = isDown ? 0 : KEYEVENTF_KEYUP;
  ::SendInput(1, &input, sizeof(input));
}

}  // namespace

PasteDesk RealPasteDesk() {
  PasteDesk desk;
  desk.sleep = [](std::chrono::milliseconds time) { std::this_thread::sleep_for(time); };
  desk.findWindow = FindRustDeskWindow;
  desk.copyToClipboard = [](const std::wstring& text) {
    return platform::CopyTextToClipboard(text);
  };
  desk.bringToFront = [](void* window) { ::SetForegroundWindow(static_cast<HWND>(window)); };
  desk.sendKey = SendKey;
  return desk;
}

}  // namespace remote
