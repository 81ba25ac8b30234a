#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <string>

// Typing the password into RustDesk's window for the engineer, once that window shows up.
namespace remote {

// The desk on which that happens: the computer's own, or a fake in tests. Called on one thread.
struct PasteDesk {
  std::function<void(std::chrono::milliseconds time)> sleep;
  // RustDesk's window for this ID, null while there is none. What it points to is the desk's own.
  std::function<void*(const std::wstring& rustDeskId)> findWindow;
  std::function<bool(const std::wstring& text)> copyToClipboard;
  std::function<void(void* window)> bringToFront;
  std::function<void(std::uint16_t virtualKey, bool isDown)> sendKey;
};

// The computer's own desk. Windows only.
PasteDesk RealPasteDesk();

// Windows' virtual-key codes.
inline constexpr std::uint16_t kKeyControl = 0x11;
inline constexpr std::uint16_t kKeyV = 0x56;
inline constexpr std::uint16_t kKeyReturn = 0x0D;

// Looks for the window ten times, 900 ms before each; when it is there, puts the password on the
// clipboard again, the window in front, and presses Ctrl+V and Enter. Gives up silently when the
// window never shows. Takes up to 9.3 s. Throws what the desk throws.
void PastePassword(const std::wstring& password, const std::wstring& rustDeskId,
                   const PasteDesk& desk);

// The same on a detached thread with copies of its own, which ends quietly whatever happens on the
// desk; any number may be under way. Throws std::system_error when the thread cannot be made.
void StartPasswordPaste(const std::wstring& password, const std::wstring& rustDeskId,
                        PasteDesk desk);

}  // namespace remote
