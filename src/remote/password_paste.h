#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <stop_token>
#include <string>

#include "remote/password_keeper.h"

// Typing the password into RustDesk's window for the engineer, once that window shows up.
namespace remote {

// Takes a line for the engineer's log.
using PasteNotice = std::function<void(const std::wstring& text)>;

// The desk on which that happens: the computer's own, or a fake in tests. Called on one thread.
//
// A paste is over when the program closes or a newer session has begun: from then on nothing may be
// copied or typed. Whoever returns false then, soon and without having done anything, ends it.
struct PasteDesk {
  std::function<bool(std::chrono::milliseconds time)> sleep;  // false once the paste is over
  // RustDesk's window for this ID, null while there is none. What it points to is the desk's own.
  std::function<void*(const std::wstring& rustDeskId)> findWindow;
  std::function<void(const std::wstring& text)> copyToClipboard;  // not once the paste is over
  std::function<bool(void* window)> bringToFront;                 // false once the paste is over
  // Whether keys go to the window's program now. Windows lets nobody take the front from an
  // engineer who works elsewhere.
  std::function<bool(void* window)> isInFront;
  std::function<bool(std::uint16_t virtualKey)> pressKey;  // false once the paste is over
  std::function<void(std::uint16_t virtualKey)> releaseKey;
  PasteNotice notice;
};

// A session's share in the keeper, which it may outlive.
struct PasteTurn {
  std::shared_ptr<PasswordKeeper> keeper;
  PasswordKeeper::Session session = 0;
  std::stop_token closing;  // requested when the program ends
};

// The computer's own desk, on which RustDesk was started from `startedPath`. Windows only.
PasteDesk RealPasteDesk(const PasteTurn& turn, const std::wstring& startedPath, PasteNotice notice);

// Windows' virtual-key codes.
inline constexpr std::uint16_t kKeyControl = 0x11;
inline constexpr std::uint16_t kKeyV = 0x56;
inline constexpr std::uint16_t kKeyReturn = 0x0D;

// Looks for the window ten times, 900 ms before each; when it is there, puts the password on the
// clipboard again, the window in front, and presses Ctrl+V and Enter. Where it does not come to the
// front nothing is typed, as that would go to another program, and the next look tries again; the
// clipboard is the engineer's meanwhile. Gives up silently when the window never shows, with a
// notice when it was never in front. Stops between any two steps once the paste is over, but leaves
// no key pressed. Takes up to 10.9 s. Throws what the desk throws.
void PastePassword(const std::wstring& password, const std::wstring& rustDeskId,
                   const PasteDesk& desk);

// The same on a detached thread with copies of its own, which ends quietly whatever happens on the
// desk; any number may be under way, each for its own session. Throws std::system_error when the
// thread cannot be made.
void StartPasswordPaste(const std::wstring& password, const std::wstring& rustDeskId,
                        PasteDesk desk);

}  // namespace remote
