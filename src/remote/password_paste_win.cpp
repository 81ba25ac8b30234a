#include <algorithm>
#include <chrono>
#include <exception>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "platform/handles_win.h"
#include "remote/password_paste.h"
#include "remote/rustdesk_window.h"

namespace remote {
namespace {

struct WindowSearch {
  std::wstring rustDeskId;
  std::vector<DeskWindow> windows;  // of those with a title that counts
};

std::wstring TitleOf(HWND window) {
  const int lengthUnits = ::GetWindowTextLengthW(window);
  if (lengthUnits <= 0) return {};
  std::wstring title(static_cast<std::size_t>(lengthUnits), L'\0');
  const int takenUnits = ::GetWindowTextW(window, title.data(), lengthUnits + 1);
  title.resize(static_cast<std::size_t>(takenUnits));
  return title;
}

// Empty for a process that has gone, or that this program may not ask.
std::wstring ImageOf(HWND window) {
  DWORD id = 0;
  ::GetWindowThreadProcessId(window, &id);
  const platform::ProcessHandle process(
      id == 0 ? nullptr : ::OpenProcess(PROCESS_QUERY_LIMITED_INFORMATION, FALSE, id));
  if (!process) return {};
  std::vector<wchar_t> path(32'768);  // longer ones do not exist
  auto lengthUnits = static_cast<DWORD>(path.size());
  if (::QueryFullProcessImageNameW(process.Get(), 0, path.data(), &lengthUnits) == FALSE) return {};
  return {path.data(), lengthUnits};
}

// FALSE would end the enumeration.
BOOL CALLBACK LookAtWindow(HWND window, LPARAM lParam) noexcept {
  auto& search = *reinterpret_cast<WindowSearch*>(lParam);
  try {
    if (!::IsWindowVisible(window) || ::GetWindow(window, GW_OWNER) != nullptr) return TRUE;
    std::wstring title = TitleOf(window);
    if (!IsRustDeskTitle(title, search.rustDeskId)) return TRUE;
    search.windows.push_back({window, std::move(title), ImageOf(window)});
  } catch (const std::exception&) {  // memory is short; the next window may have a shorter title
  }
  return TRUE;
}

void* FindRustDeskWindow(const std::wstring& rustDeskId, const std::wstring& startedPath) {
  WindowSearch search{rustDeskId, {}};
  ::EnumWindows(LookAtWindow, reinterpret_cast<LPARAM>(&search));
  return ChooseRustDeskWindow(search.windows, rustDeskId, startedPath);
}

bool MayGoOn(const PasteTurn& turn) {
  return !turn.closing.stop_requested() && turn.keeper->MayGoOn(turn.session);
}

// Runs `step` unless the paste is over.
template <typename Step>
bool Do(const PasteTurn& turn, const Step& step) {
  return !turn.closing.stop_requested() && turn.keeper->Do(turn.session, step);
}

// True after the whole time; false soon after the paste is over. In slices: a wait that the stop
// itself ends goes by a std::stop_callback, whose end can hang in mingw-w64's library.
bool SleepInTurn(const PasteTurn& turn, std::chrono::milliseconds time) {
  constexpr std::chrono::milliseconds kSlice{20};
  const auto end = std::chrono::steady_clock::now() + time;
  while (MayGoOn(turn)) {
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

PasteDesk RealPasteDesk(const PasteTurn& turn, const std::wstring& startedPath,
                        PasteNotice notice) {
  PasteDesk desk;
  desk.sleep = [turn](std::chrono::milliseconds time) { return SleepInTurn(turn, time); };
  desk.findWindow = [startedPath](const std::wstring& rustDeskId) {
    return FindRustDeskWindow(rustDeskId, startedPath);
  };
  desk.copyToClipboard = [turn](const std::wstring& text) {
    if (!turn.closing.stop_requested()) {
      static_cast<void>(turn.keeper->CopyPassword(turn.session, text));
    }
  };
  desk.bringToFront = [turn](void* window) {
    return Do(turn, [window] { ::SetForegroundWindow(static_cast<HWND>(window)); });
  };
  desk.isInFront = IsInFront;
  desk.pressKey = [turn](std::uint16_t key) { return Do(turn, [key] { SendKey(key, true); }); };
  desk.releaseKey = [](std::uint16_t key) { SendKey(key, false); };
  desk.notice = std::move(notice);
  return desk;
}

}  // namespace remote
