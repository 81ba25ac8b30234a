#include "remote/password_keeper.h"

#include <algorithm>

namespace remote {
namespace {

using std::chrono::milliseconds;

constexpr milliseconds kOnClipboard = std::chrono::minutes(10);
// While another program holds the clipboard.
constexpr milliseconds kRetryInterval = std::chrono::seconds(5);

}  // namespace

PasswordKeeper::Session PasswordKeeper::Begin() {
  const platform::MutexLock held(lock_);
  // Ends every earlier session: its number is no longer the newest.
  return ++newest_;
}

void PasswordKeeper::End() {
  std::thread waiting;
  {
    const platform::MutexLock held(lock_);
    hasEnded_ = true;
    // One attempt: the end must not wait for a program that holds the clipboard.
    TryToRemove();
    waiting = std::exchange(waiting_, std::thread());
  }
  changed_.NotifyAll();
  // Joined without the lock, which the thread needs to see the end. Taken out of the member first:
  // End() may be called on two threads at once, and only one may join.
  if (waiting.joinable()) waiting.join();
}

bool PasswordKeeper::MayGoOn(Session session) const {
  const platform::MutexLock held(lock_);
  return IsCurrent(session);
}

bool PasswordKeeper::Do(Session session, const std::function<void()>& step) {
  const platform::MutexLock held(lock_);
  if (!IsCurrent(session)) return false;
  step();
  return true;
}

bool PasswordKeeper::CopyPassword(Session session, const std::wstring& password) {
  const platform::MutexLock held(lock_);
  if (!IsCurrent(session)) return false;
  // Before the copy: without this thread nothing would remove the password.
  if (!waiting_.joinable()) waiting_ = std::thread([this]() noexcept { RemoveWhenDue(); });
  // Made before the copy, too: a lack of memory afterwards would leave the password unrecorded.
  Copied copied{password, now_() + kOnClipboard};
  // If copying fails, an earlier password may still be there, and its own time applies.
  if (!copy_(password)) return false;
  copied_ = std::move(copied);
  changed_.NotifyAll();
  return true;
}

void PasswordKeeper::RemoveWhenDue() {
  const platform::MutexLock held(lock_);
  while (!hasEnded_) {
    if (!copied_) {
      changed_.Wait(lock_);
      continue;
    }
    // Rounded up, so that the password is never removed before its time.
    const auto left = std::chrono::ceil<milliseconds>(copied_->due - now_());
    if (left.count() > 0) {
      // In slices, because waiting does not count the time that the computer sleeps.
      changed_.WaitFor(lock_, std::min(left, longestWait_));
    } else {
      TryToRemove();
    }
  }
}

void PasswordKeeper::TryToRemove() {
  if (!copied_) return;
  // Runs under the lock, so that a newer password cannot be removed in place of this one.
  if (clear_(copied_->password)) {
    copied_.reset();
  } else {
    copied_->due = now_() + kRetryInterval;
  }
}

}  // namespace remote
