#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <span>

#include "driver/environment_win.h"
#include "driver/network_win.h"
#include "driver/switchboard.h"
#include "platform/mutex.h"
#include "platform/windows_sdk.h"

namespace driver {

// Windows' slim locks. Under Wine they stay inside the process; the standard library's wait in the
// wineserver, which costs more than the packet they guard.
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

// All handles of this process and the connection to the TUN device.
//
// Threads: any; Close() waits until no other call is inside its handle.
// Errors:  functions return 0 or the error code that the published interface documents.
class Driver {
 public:
  static Driver& Instance();

  std::uint32_t Open(const char* filter, int layer, int priority, std::uint64_t flags,
                     std::uint64_t& id);
  // Blocks until there is a packet. `gotBytes` and `address` may be null.
  std::uint32_t Recv(std::uint64_t id, std::span<std::uint8_t> buffer, std::uint32_t* gotBytes,
                     Address* address);
  std::uint32_t Send(std::uint64_t id, std::span<const std::uint8_t> packet,
                     const Address& address);
  std::uint32_t Shutdown(std::uint64_t id, int how);
  // Packets still queued are sent on, as with the real driver.
  std::uint32_t Close(std::uint64_t id);
  std::uint32_t SetParam(std::uint64_t id, int param, std::uint64_t value);
  std::uint32_t GetParam(std::uint64_t id, int param, std::uint64_t& value);
  // True for the one checksum call that must fail.
  bool IsChecksumFault() noexcept;

 private:
  Driver();
  std::uint32_t OpenHandle(const char* filter, int layer, int priority, std::uint64_t flags,
                           std::uint64_t& id) REQUIRES(doorLock_);
  std::uint32_t StartBridge() REQUIRES(doorLock_);
  void HandleFromTun(std::span<const std::uint8_t> bytes);
  Address DescribeCaptured(const Packet& packet, std::int64_t nowMs) REQUIRES(lock_);
  std::uint32_t WaitForPacket(Handle& handle, Captured& captured) REQUIRES(lock_);
  enum class Fate { Continues, Ends };
  std::uint32_t Judge(Handle& handle, Packet& packet, const Address& address, Fate& fate)
      REQUIRES(lock_);
  std::uint32_t JudgeInbound(const Packet& packet, const Headers& headers, const Address& address,
                             Fate& fate) REQUIRES(lock_);
  void DrainOnClose(Handle& handle) REQUIRES(lock_);
  void LogOpen(const char* filter, int priority, std::uint64_t flags, std::uint64_t id,
               std::uint32_t error) REQUIRES(doorLock_);
  void LogClose(const Handle& handle) REQUIRES(doorLock_, lock_);
  void Leave(Handle& handle) REQUIRES(lock_);

  Lock doorLock_;  // serialises Open and Close; taken before lock_
  Bridge bridge_;  // started while a handle is open
  bool isLoaded_ GUARDED_BY(doorLock_) = false;
  std::uint64_t openCalls_ GUARDED_BY(doorLock_) = 0;
  Environment environment_ GUARDED_BY(doorLock_);

  Lock lock_;
  Wakeup changed_;  // a queue or a handle's state has changed
  Switchboard switchboard_ GUARDED_BY(lock_);
  Adapters adapters_ GUARDED_BY(lock_);
  std::uint64_t uncapturedCount_ GUARDED_BY(lock_) = 0;
  std::uint64_t wrongChecksumCount_ GUARDED_BY(lock_) = 0;
  std::uint64_t wrongInterfaceCount_ GUARDED_BY(lock_) = 0;

  Fault recvFault_, sendFault_, checksumFault_;
};

}  // namespace driver
