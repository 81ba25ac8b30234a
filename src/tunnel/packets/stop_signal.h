#pragma once

#include <atomic>
#include <chrono>

#include "platform/mutex.h"

namespace tunnel {

// Every loop of the tunnel checks these before it blocks. A start clears `stopping` and sets
// `running`; a stop does the reverse before it closes handles and sockets to wake the loops.
struct TunnelFlags {
  std::atomic<bool> running{false};
  std::atomic<bool> stopping{false};

  [[nodiscard]] bool KeepGoing() const noexcept { return running && !stopping; }
};

// Owns TunnelFlags::stopping: set from a stop request until the next start. Requests are counted,
// so that a start cannot clear the flag while another thread's stop is still waiting.
//
// Threads: any.
class StopSignal {
 public:
  // Keeps the reference; the flags must outlive it.
  explicit StopSignal(TunnelFlags& flags) : flags_(flags) {}

  // Sets the flag and ends every wait. Call Settle() once for each Request(), when its stop is
  // done; the flag stays set.
  void Request() noexcept EXCLUDES(lock_);
  void Settle() noexcept EXCLUDES(lock_);

  // Clears the flag for a new start. False, leaving it set, while a stop is in progress.
  [[nodiscard]] bool TryClear() noexcept EXCLUDES(lock_);

  [[nodiscard]] bool IsSet() const noexcept { return flags_.stopping; }

  // Cuts the current wait short, or else the next one.
  void Hurry() noexcept EXCLUDES(lock_);
  // Withdraws a Hurry() that no wait has used yet.
  void ForgetHurry() noexcept EXCLUDES(lock_);

  // Waits for `time`. True if a stop or Hurry() ends the wait early.
  bool WaitFor(std::chrono::milliseconds time) EXCLUDES(lock_);

 private:
  TunnelFlags& flags_;
  platform::Mutex lock_;
  platform::Condition changed_;
  int pending_ GUARDED_BY(lock_) = 0;
  bool hurries_ GUARDED_BY(lock_) = false;
};

}  // namespace tunnel
