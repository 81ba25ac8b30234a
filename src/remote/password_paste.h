#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <stop_token>
#include <string>

// Typing the password into RustDesk's window for the engineer, once that window shows up.
namespace remote {

// Takes a line for the engineer's log.
using PasteNotice = std::function<void(const std::wstring& text)>;

// The desk on which that happens: the computer's own, or a fake in tests. Called on one thread.
struct PasteDesk {
  // False when the program is closing, which ends it at once: nothing may be typed any more.
  std::function<bool(std::chrono::milliseconds time)> sleep;
  // RustDesk's window for this ID, null while there is none. What it points to is the desk's own.
  std::function<void*(const std::wstring& rustDeskId)> findWindow;
  std::function<bool(const std::wstring& text)> copyToClipboard;
  std::function<void(void* window)> bringToFront;
  // Whether keys go to the window's program now. Windows lets nobody take the front from an
  // engineer who works elsewhere.
  std::function<bool(void* window)> isInFront;
  std::function<void(std::uint16_t virtualKey, bool isDown)> sendKey;
  PasteNotice notice;
};

// The computer's own desk, on which RustDesk was started from `startedPath`. Windows only.
PasteDesk RealPasteDesk(const std::stop_token& closing, const std::wstring& startedPath,
                        PasteNotice notice);

// Windows' virtual-key codes.
inline constexpr std::uint16_t kKeyControl = 0x11;
inline constexpr std::uint16_t kKeyV = 0x56;
inline constexpr std::uint16_t kKeyReturn = 0x0D;

// Looks for the window ten times, 900 ms before each; when it is there, puts the password on the
// clipboard again, the window in front, and presses Ctrl+V and Enter. Where it does not come to the
// front nothing is typed, as that would go to another program, and the next look tries again; the
// clipboard is the engineer's meanwhile. Gives up silently when the window never shows, with a
// notice when it was never in front. Takes up to 10.9 s. Throws what the desk throws.
void PastePassword(const std::wstring& password, const std::wstring& rustDeskId,
                   const PasteDesk& desk);

// The same on a detached thread with copies of its own, which ends quietly whatever happens on the
// desk; any number may be under way. Throws std::system_error when the thread cannot be made.
void StartPasswordPaste(const std::wstring& password, const std::wstring& rustDeskId,
                        PasteDesk desk);

}  // namespace remote
