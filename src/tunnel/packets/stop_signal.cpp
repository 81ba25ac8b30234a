#include "tunnel/packets/stop_signal.h"

#include <utility>

namespace tunnel {

void StopSignal::Request() noexcept {
  {
    // Under the lock: a wait that has just checked the flag already receives the notification.
    const platform::MutexLock held(lock_);
    ++pending_;
    flags_.stopping = true;
  }
  changed_.NotifyAll();
}

void StopSignal::Settle() noexcept {
  const platform::MutexLock held(lock_);
  --pending_;
}

bool StopSignal::TryClear() noexcept {
  const platform::MutexLock held(lock_);
  // Another thread's stop still waits for its turn and must find the flag set.
  if (pending_ > 0) return false;
  flags_.stopping = false;
  hurries_ = false;
  return true;
}

void StopSignal::Hurry() noexcept {
  {
    const platform::MutexLock held(lock_);
    hurries_ = true;
  }
  changed_.NotifyAll();
}

void StopSignal::ForgetHurry() noexcept {
  const platform::MutexLock held(lock_);
  hurries_ = false;
}

bool StopSignal::WaitFor(std::chrono::milliseconds time) {
  const auto end = std::chrono::steady_clock::now() + time;
  const platform::MutexLock held(lock_);
  while (!flags_.stopping) {
    // Used up: one hurry ends one wait.
    if (std::exchange(hurries_, false)) return true;
    // Rounded up: the last fraction of a millisecond would otherwise be a wait of 0 and a busy
    // loop.
    const auto left =
        std::chrono::ceil<std::chrono::milliseconds>(end - std::chrono::steady_clock::now());
    if (left.count() <= 0) return false;
    changed_.WaitFor(lock_, left);
  }
  return true;
}

}  // namespace tunnel
