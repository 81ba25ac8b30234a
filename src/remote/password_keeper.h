#pragma once

#include <cstdint>
#include <functional>
#include <string>

#include "platform/mutex.h"

namespace remote {

// Which session of a remote desktop may use the clipboard and the keyboard: the newest, until the
// program ends. An earlier one's password must not be typed once another is under way.
//
// Threads: any. What it is given to do runs under its lock, on the caller's thread: a session does
//          not begin, nor does the program end, in the midst of it.
class PasswordKeeper {
 public:
  using Session = std::uint64_t;
  using Copy = std::function<bool(const std::wstring& text)>;

  explicit PasswordKeeper(Copy copyToClipboard) : copyToClipboard_(std::move(copyToClipboard)) {}

  // Begins a session, which ends every earlier one.
  [[nodiscard]] Session Begin() EXCLUDES(lock_);
  // The end of the program: no session may do anything any more, one begun later neither.
  void End() EXCLUDES(lock_);

  [[nodiscard]] bool MayGoOn(Session session) const EXCLUDES(lock_);
  // Runs `step` if the session may go on, else returns false.
  bool Do(Session session, const std::function<void()>& step) EXCLUDES(lock_);
  // Puts the session's password on the clipboard. False when it is not there, also because the
  // session may not go on.
  [[nodiscard]] bool CopyPassword(Session session, const std::wstring& password) EXCLUDES(lock_);

 private:
  [[nodiscard]] bool IsCurrent(Session session) const REQUIRES(lock_) {
    return session == newest_ && !hasEnded_;
  }

  const Copy copyToClipboard_;
  mutable platform::Mutex lock_;
  Session newest_ GUARDED_BY(lock_) = 0;
  bool hasEnded_ GUARDED_BY(lock_) = false;
};

}  // namespace remote
