#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <thread>
#include <utility>

#include "platform/mutex.h"

namespace remote {

// What the keeper acts through: the system's clipboard and clock, or fakes in tests.
struct PasswordKeeperDeps {
  std::function<bool(const std::wstring& text)> copyToClipboard;
  // Empties the clipboard if it holds this text; false when it may still be there.
  std::function<bool(const std::wstring& text)> takeOffClipboard;
  std::function<std::chrono::steady_clock::time_point()> now = std::chrono::steady_clock::now;
  // How long the clock is not looked at: waits do not count the time that a computer sleeps.
  std::chrono::milliseconds longestWait{30'000};
};

// Which session of a remote desktop may use the clipboard and the keyboard: the newest, until the
// program ends. An earlier one's password must not be typed once another is under way. And how long
// its password stays on the clipboard: ten minutes from its last copy, or until the program ends.
//
// Threads: any. What it is given to do runs under its lock, on the caller's thread: a session does
//          not begin, nor does the program end, in the midst of it. A thread of its own, begun
//          with the first copy and joined at the end, waits for the ten minutes.
// Owns:    the password that it has to take off, until then.
class PasswordKeeper {
 public:
  using Session = std::uint64_t;

  explicit PasswordKeeper(PasswordKeeperDeps deps) : deps_(std::move(deps)) {}
  ~PasswordKeeper() { End(); }
  PasswordKeeper(const PasswordKeeper&) = delete;
  PasswordKeeper& operator=(const PasswordKeeper&) = delete;

  // Begins a session, which ends every earlier one. A password on the clipboard stays there for the
  // rest of its time.
  [[nodiscard]] Session Begin() EXCLUDES(lock_);
  // The end of the program: takes the password off the clipboard if it is still there. No session
  // may do anything any more, one begun later neither. Returns soon.
  void End() EXCLUDES(lock_);

  [[nodiscard]] bool MayGoOn(Session session) const EXCLUDES(lock_);
  // Runs `step` if the session may go on, else returns false.
  bool Do(Session session, const std::function<void()>& step) EXCLUDES(lock_);
  // Puts the session's password on the clipboard, where it takes the place of an earlier one; each
  // copy begins its ten minutes anew. False when it is not there, also because the session may not
  // go on. Throws std::system_error, without a copy, when there is no thread to take it off again.
  [[nodiscard]] bool CopyPassword(Session session, const std::wstring& password) EXCLUDES(lock_);

 private:
  // A password on the clipboard, and when it goes.
  struct Copied {
    std::wstring password;
    std::chrono::steady_clock::time_point due;
  };

  [[nodiscard]] bool IsCurrent(Session session) const REQUIRES(lock_) {
    return session == newest_ && !hasEnded_;
  }
  void WaitForDues() EXCLUDES(lock_);
  void TakeOff() REQUIRES(lock_);

  const PasswordKeeperDeps deps_;
  mutable platform::Mutex lock_;
  platform::Condition changed_;  // copied_ or hasEnded_
  Session newest_ GUARDED_BY(lock_) = 0;
  bool hasEnded_ GUARDED_BY(lock_) = false;
  std::optional<Copied> copied_ GUARDED_BY(lock_);
  std::thread waiting_ GUARDED_BY(lock_);
};

}  // namespace remote
