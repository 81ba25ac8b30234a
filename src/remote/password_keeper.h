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

// Decides which remote desktop session may use the clipboard and the keyboard, and removes its
// password from the clipboard in time. Only the newest session may, until the program ends: an
// earlier one's password must not be typed once another is under way. The password stays on the
// clipboard for ten minutes after its last copy, or until the program ends.
//
// Threads: any. Steps run under the lock, on the caller's thread, so that no session begins and the
//          program does not end during one. A thread of its own waits for the ten minutes; it
//          starts with the first copy and is joined by End().
// Owns:    the password while it is on the clipboard.
class PasswordKeeper {
 public:
  using Session = std::uint64_t;

  using Clock = std::function<std::chrono::steady_clock::time_point()>;

  // `copy` puts a text on the clipboard; `clear` empties the clipboard if it holds that text and
  // returns false when the text may still be there. `longestWait` bounds the time between two looks
  // at the clock, because waiting does not count the time that a computer sleeps.
  PasswordKeeper(std::function<bool(const std::wstring& text)> copy,
                 std::function<bool(const std::wstring& text)> clear,
                 Clock now = std::chrono::steady_clock::now,
                 std::chrono::milliseconds longestWait = std::chrono::seconds(30))
      : copy_(std::move(copy)),
        clear_(std::move(clear)),
        now_(std::move(now)),
        longestWait_(longestWait) {}
  ~PasswordKeeper() { End(); }
  PasswordKeeper(const PasswordKeeper&) = delete;
  PasswordKeeper& operator=(const PasswordKeeper&) = delete;

  // Begins a session and ends every earlier one. A password on the clipboard stays there for the
  // rest of its time.
  [[nodiscard]] Session Begin() EXCLUDES(lock_);
  // For the end of the program: removes the password from the clipboard if it is still there. From
  // then on no session may do anything, not even a new one. Returns soon.
  void End() EXCLUDES(lock_);

  [[nodiscard]] bool MayGoOn(Session session) const EXCLUDES(lock_);
  // Runs `step` and returns true, if the session may go on.
  bool Do(Session session, const std::function<void()>& step) EXCLUDES(lock_);
  // Puts the session's password on the clipboard in place of an earlier one; each copy restarts the
  // ten minutes. False when it was not copied, which includes a session that may not go on. Throws
  // std::system_error, without copying, when the thread that removes it cannot be created.
  [[nodiscard]] bool CopyPassword(Session session, const std::wstring& password) EXCLUDES(lock_);

 private:
  // A password on the clipboard, and when it must be removed.
  struct Copied {
    std::wstring password;
    std::chrono::steady_clock::time_point due;
  };

  [[nodiscard]] bool IsCurrent(Session session) const REQUIRES(lock_) {
    return session == newest_ && !hasEnded_;
  }
  void RemoveWhenDue() EXCLUDES(lock_);
  void TryToRemove() REQUIRES(lock_);

  const std::function<bool(const std::wstring& text)> copy_;
  const std::function<bool(const std::wstring& text)> clear_;
  const Clock now_;
  const std::chrono::milliseconds longestWait_;
  mutable platform::Mutex lock_;
  platform::Condition changed_;  // copied_ or hasEnded_
  Session newest_ GUARDED_BY(lock_) = 0;
  bool hasEnded_ GUARDED_BY(lock_) = false;
  std::optional<Copied> copied_ GUARDED_BY(lock_);
  std::thread waiting_ GUARDED_BY(lock_);
};

}  // namespace remote
