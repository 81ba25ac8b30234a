#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <stop_token>
#include <string>

#include "remote/password_keeper.h"

// Types the password into RustDesk's window for the engineer, once that window appears.
namespace remote {

// Receives a line for the engineer's log.
using PasteNotice = std::function<void(const std::wstring& text)>;

// The desktop as pasting uses it: the computer's own, or a fake in tests. Called on one thread.
//
// A paste is over when the program closes or a newer session has begun. From then on the functions
// that return bool as "false once the paste is over" must do nothing and return false soon.
class PasteDeps {
 public:
  virtual ~PasteDeps() = default;

  virtual bool Sleep(std::chrono::milliseconds time) = 0;  // false once the paste is over
  // RustDesk's window for this ID, or null. Only the other functions interpret the pointer.
  virtual void* FindWindowFor(const std::wstring& rustDeskId) = 0;
  virtual void CopyToClipboard(const std::wstring& text) = 0;  // nothing once the paste is over
  virtual bool BringToFront(void* window) = 0;                 // false once the paste is over
  // Whether keys reach the window's program now. Windows may refuse to take the foreground from a
  // program in which the engineer is working.
  virtual bool IsInFront(void* window) = 0;
  virtual bool PressKey(std::uint16_t virtualKey) = 0;  // false once the paste is over
  virtual void ReleaseKey(std::uint16_t virtualKey) = 0;
  virtual void Notice(const std::wstring& text) = 0;
};

// A session's place in the keeper. May outlive the session.
struct PasteTurn {
  std::shared_ptr<PasswordKeeper> keeper;
  PasswordKeeper::Session session = 0;
  std::stop_token closing;  // requested when the program ends
};

// The computer's own desktop, on which RustDesk was started from `startedPath`. Windows only.
class RealPasteDeps : public PasteDeps {
 public:
  RealPasteDeps(PasteTurn turn, std::wstring startedPath, PasteNotice notice);

  bool Sleep(std::chrono::milliseconds time) override;
  void* FindWindowFor(const std::wstring& rustDeskId) override;
  void CopyToClipboard(const std::wstring& text) override;
  bool BringToFront(void* window) override;
  bool IsInFront(void* window) override;
  bool PressKey(std::uint16_t virtualKey) override;
  void ReleaseKey(std::uint16_t virtualKey) override;
  void Notice(const std::wstring& text) override;

 private:
  [[nodiscard]] bool MayGoOn() const;

  const PasteTurn turn_;
  const std::wstring startedPath_;
  const PasteNotice notice_;
};

// Windows' virtual-key codes.
inline constexpr std::uint16_t kKeyControl = 0x11;
inline constexpr std::uint16_t kKeyV = 0x56;
inline constexpr std::uint16_t kKeyReturn = 0x0D;

// Looks for the window ten times, 900 ms before each. When it is there, copies the password again,
// brings the window to the front and presses Ctrl+V and Enter. If it does not come to the front,
// nothing is typed, since the keys would reach another program, and the next look tries again;
// meanwhile the clipboard is left to the engineer. Gives up silently if the window never appears,
// and with a notice if it never was in front. Stops between any two steps once the paste is over,
// but leaves no key pressed. Takes up to 10.9 s. Throws what `deps` throws.
void PastePassword(const std::wstring& password, const std::wstring& rustDeskId, PasteDeps& deps);

// The same on a detached thread, which ends quietly whatever `deps` throws. Any number may run at
// once, each for its own session. Throws std::system_error when the thread cannot be created.
void StartPasswordPaste(const std::wstring& password, const std::wstring& rustDeskId,
                        std::shared_ptr<PasteDeps> deps);

}  // namespace remote
