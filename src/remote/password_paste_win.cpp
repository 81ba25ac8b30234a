#include <algorithm>
#include <chrono>
#include <exception>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "platform/handles_win.h"
#include "remote/password_paste.h"
#include "remote/rustdesk_program.h"

namespace remote {
namespace {

struct WindowSearch {
  std::wstring rustDeskId;
  std::vector<DeskWindow> windows;  // those with a matching title
};

std::wstring TitleOf(HWND window) {
  const int lengthUnits = ::GetWindowTextLengthW(window);
  if (lengthUnits <= 0) return {};
  std::wstring title(static_cast<std::size_t>(lengthUnits), L'\0');
  const int takenUnits = ::GetWindowTextW(window, title.data(), lengthUnits + 1);
  // The title may have become shorter between the two calls.
  title.resize(static_cast<std::size_t>(takenUnits));
  return title;
}

// Empty for a process that has ended or that this program may not query.
std::wstring ImageOf(HWND window) {
  DWORD id = 0;  // stays 0 if the window has been destroyed meanwhile
  ::GetWindowThreadProcessId(window, &id);
  const platform::ProcessHandle process(
      id == 0 ? nullptr : ::OpenProcess(PROCESS_QUERY_LIMITED_INFORMATION, FALSE, id));
  if (!process) return {};
  std::vector<wchar_t> path(32'768);  // the longest possible path
  auto lengthUnits = static_cast<DWORD>(path.size());
  if (::QueryFullProcessImageNameW(process.Get(), 0, path.data(), &lengthUnits) == FALSE) return {};
  return {path.data(), lengthUnits};
}

// Always returns TRUE: FALSE would end the enumeration.
BOOL CALLBACK LookAtWindow(HWND window, LPARAM lParam) noexcept {
  auto& search = *reinterpret_cast<WindowSearch*>(lParam);
  // No exception may pass through EnumWindows, the caller.
  try {
    if (!::IsWindowVisible(window) || ::GetWindow(window, GW_OWNER) != nullptr) return TRUE;
    std::wstring title = TitleOf(window);
    if (!IsRustDeskTitle(title, search.rustDeskId)) return TRUE;
    search.windows.push_back({window, std::move(title), ImageOf(window)});
  } catch (const std::exception&) {
    return TRUE;  // short of memory; the next window may have a shorter title
  }
  return TRUE;
}

void SendKey(std::uint16_t virtualKey, bool isDown) {
  INPUT input{};
  input.type = INPUT_KEYBOARD;
  input.ki.wVk = virtualKey;
  input.ki.dwFlags = isDown ? 0 : KEYEVENTF_KEYUP;
  // The result is ignored: on a locked desktop the call fails; the password is on the clipboard.
  ::SendInput(1, &input, sizeof(input));
}

}  // namespace

RealPasteDeps::RealPasteDeps(PasteTurn turn, std::wstring startedPath, PasteNotice notice)
    : turn_(std::move(turn)), startedPath_(std::move(startedPath)), notice_(std::move(notice)) {}

bool RealPasteDeps::MayGoOn() const {
  // Both, because a closing window requests the stop first and ends the keeper after its jobs.
  return !turn_.closing.stop_requested() && turn_.keeper->MayGoOn(turn_.session);
}

// Sleeps in slices, because waiting for the stop itself uses a std::stop_callback, whose destructor
// can hang in mingw-w64's library.
bool RealPasteDeps::Sleep(std::chrono::milliseconds time) {
  constexpr std::chrono::milliseconds kSlice{20};
  const auto end = std::chrono::steady_clock::now() + time;
  while (MayGoOn()) {
    const auto left = end - std::chrono::steady_clock::now();
    if (left.count() <= 0) return true;
    std::this_thread::sleep_for(std::min<std::chrono::nanoseconds>(left, kSlice));
  }
  return false;
}

void* RealPasteDeps::FindWindowFor(const std::wstring& rustDeskId) {
  WindowSearch search{rustDeskId, {}};
  ::EnumWindows(LookAtWindow, reinterpret_cast<LPARAM>(&search));
  return ChooseRustDeskWindow(search.windows, rustDeskId, startedPath_);
}

void RealPasteDeps::CopyToClipboard(const std::wstring& text) {
  if (turn_.closing.stop_requested()) return;
  static_cast<void>(turn_.keeper->CopyPassword(turn_.session, text));
}

bool RealPasteDeps::BringToFront(void* window) {
  if (turn_.closing.stop_requested()) return false;
  // Windows may refuse; IsInFront() finds out.
  return turn_.keeper->Do(turn_.session,
                          [window] { ::SetForegroundWindow(static_cast<HWND>(window)); });
}

// Any window of the same process counts: RustDesk may have put one of its own in front.
bool RealPasteDeps::IsInFront(void* window) {
  DWORD wanted = 0;
  DWORD inFront = 0;
  ::GetWindowThreadProcessId(static_cast<HWND>(window), &wanted);
  ::GetWindowThreadProcessId(::GetForegroundWindow(), &inFront);
  return wanted != 0 && wanted == inFront;
}

bool RealPasteDeps::PressKey(std::uint16_t virtualKey) {
  if (turn_.closing.stop_requested()) return false;
  // Under the keeper's lock: no newer session can begin between the check and the key.
  return turn_.keeper->Do(turn_.session, [virtualKey] { SendKey(virtualKey, true); });
}

void RealPasteDeps::ReleaseKey(std::uint16_t virtualKey) {
  // Even once the paste is over: a key that was pressed must not stay down.
  SendKey(virtualKey, false);
}

void RealPasteDeps::Notice(const std::wstring& text) {
  notice_(text);
}

}  // namespace remote
