#include <algorithm>
#include <chrono>
#include <exception>
#include <thread>
#include <utility>

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

// True after the whole time; false soon after the program is closing. In slices: a wait that the
// stop itself ends goes by a std::stop_callback, whose end can hang in mingw-w64's library.
bool SleepUnless(const std::stop_token& closing, std::chrono::milliseconds time) {
  constexpr std::chrono::milliseconds kSlice{20};
  const auto end = std::chrono::steady_clock::now() + time;
  while (!closing.stop_requested()) {
    const auto left = end - std::chrono::steady_clock::now();
    if (left.count() <= 0) return true;
    std::this_thread::sleep_for(std::min<std::chrono::nanoseconds>(left, kSlice));
  }
  return false;
}

// Any window of the same process counts: RustDesk may have put one of its own in front.
bool IsInFront(void* window) {
  DWORD wanted = 0;
  DWORD inFront = 0;
  ::GetWindowThreadProcessId(static_cast<HWND>(window), &wanted);
  ::GetWindowThreadProcessId(::GetForegroundWindow(), &inFront);
  return wanted != 0 && wanted == inFront;
}

void SendKey(std::uint16_t virtualKey, bool isDown) {
  INPUT input{};
  input.type = INPUT_KEYBOARD;
  input.ki.wVk = virtualKey;
  input.ki.dwFlags = isDown ? 0 : KEYEVENTF_KEYUP;
  ::SendInput(1, &input, sizeof(input));
}

}  // namespace

PasteDesk RealPasteDesk(const std::stop_token& closing, PasteNotice notice) {
  PasteDesk desk;
  desk.sleep = [closing](std::chrono::milliseconds time) { return SleepUnless(closing, time); };
  desk.findWindow = FindRustDeskWindow;
  desk.copyToClipboard = [](const std::wstring& text) {
    return platform::CopySecretToClipboard(text);
  };
  desk.bringToFront = [](void* window) { ::SetForegroundWindow(static_cast<HWND>(window)); };
  desk.isInFront = IsInFront;
  desk.sendKey = SendKey;
  desk.notice = std::move(notice);
  return desk;
}

}  // namespace remote
