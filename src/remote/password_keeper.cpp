#include "remote/password_keeper.h"

#include <algorithm>

namespace remote {
namespace {

using std::chrono::milliseconds;

constexpr milliseconds kOnClipboard = std::chrono::minutes(10);
constexpr milliseconds kUntilNextTry = std::chrono::seconds(5);  // for one who holds the clipboard

}  // namespace

PasswordKeeper::Session PasswordKeeper::Begin() {
  const platform::MutexLock held(lock_);
  return ++newest_;
}

void PasswordKeeper::End() {
  std::thread waiting;
  {
    const platform::MutexLock held(lock_);
    hasEnded_ = true;
    TakeOff();
    waiting = std::exchange(waiting_, std::thread());
  }
  changed_.NotifyAll();
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
  if (!waiting_.joinable()) waiting_ = std::thread([this]() noexcept { WaitForDues(); });
  Copied copied{password, deps_.now() + kOnClipboard};
  // Where that fails, an earlier one may still be there, and keeps its time.
  if (!deps_.copyToClipboard(password)) return false;
  copied_ = std::move(copied);
  changed_.NotifyAll();
  return true;
}

void PasswordKeeper::WaitForDues() {
  const platform::MutexLock held(lock_);
  while (!hasEnded_) {
    if (!copied_) {
      changed_.Wait(lock_);
      continue;
    }
    const auto left = std::chrono::ceil<milliseconds>(copied_->due - deps_.now());
    if (left.count() > 0) {
      changed_.WaitFor(lock_, std::min(left, deps_.longestWait));
    } else {
      TakeOff();
    }
  }
}

void PasswordKeeper::TakeOff() {
  if (!copied_) return;
  if (deps_.takeOffClipboard(copied_->password)) {
    copied_.reset();
  } else {
    copied_->due = deps_.now() + kUntilNextTry;
  }
}

}  // namespace remote
