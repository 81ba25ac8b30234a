#pragma once

#include "platform/mutex.h"
#include "platform/windows_sdk.h"

namespace driver {

// Windows' own light locks. Under Wine they live inside the process, while the standard library's
// wait in the server, which would cost more than the packet they guard.
class CAPABILITY("mutex") Lock {
 public:
  void Acquire() noexcept ACQUIRE() { ::AcquireSRWLockExclusive(&lock_); }
  void Release() noexcept RELEASE() { ::ReleaseSRWLockExclusive(&lock_); }

 private:
  friend class Wakeup;
  SRWLOCK lock_ = SRWLOCK_INIT;
};

class SCOPED_CAPABILITY Locked {
 public:
  explicit Locked(Lock& lock) noexcept ACQUIRE(lock) : lock_(lock) { lock_.Acquire(); }
  ~Locked() RELEASE() { lock_.Release(); }
  Locked(const Locked&) = delete;
  Locked& operator=(const Locked&) = delete;

 private:
  Lock& lock_;
};

// Wait() is called and returns with the lock held; wake-ups may be spurious.
class Wakeup {
 public:
  void Wait(Lock& lock) noexcept REQUIRES(lock) {
    ::SleepConditionVariableSRW(&condition_, &lock.lock_, INFINITE, 0);
  }
  void WakeAll() noexcept { ::WakeAllConditionVariable(&condition_); }

 private:
  CONDITION_VARIABLE condition_ = CONDITION_VARIABLE_INIT;
};

}  // namespace driver
