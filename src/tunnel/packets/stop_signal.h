#pragma once

#include <atomic>
#include <chrono>

#include "platform/mutex.h"

namespace tunnel {

// What every loop of the tunnel looks at before it blocks. Starting clears `stopping` and sets
// `running`; stopping does the reverse before it closes handles and sockets to wake the loops.
struct TunnelFlags {
  std::atomic<bool> running{false};
  std::atomic<bool> stopping{false};

  [[nodiscard]] bool KeepGoing() const noexcept { return running && !stopping; }
};

// Keeps TunnelFlags::stopping: set while anyone asks for a stop, and from a stop to the next start.
// A start that finds a stop waiting for it must not clear the flag under the stopper's feet, so
// requests are counted.
//
// Threads: any.
class StopSignal {
 public:
  // Keeps the reference; the flags must outlive it.
  explicit StopSignal(TunnelFlags& flags) : flags_(flags) {}

  // Sets the flag and ends every wait. Each Request() is followed by one Settle() when its stop is
  // done; the flag stays set.
  void Request() noexcept EXCLUDES(lock_);
  void Settle() noexcept EXCLUDES(lock_);

  // Clears the flag for a new start; false, and still set, while a stop is under way.
  [[nodiscard]] bool TryClear() noexcept EXCLUDES(lock_);

  [[nodiscard]] bool IsSet() const noexcept { return flags_.stopping; }

  // Ends the wait under way before its time, or else the next one.
  void Hurry() noexcept EXCLUDES(lock_);
  // Takes that back, for a wait that has not begun.
  void ForgetHurry() noexcept EXCLUDES(lock_);

  // Waits; true when it ends early: a stop is asked for, at once or meanwhile, or it is to hurry.
  bool WaitFor(std::chrono::milliseconds time) EXCLUDES(lock_);

 private:
  TunnelFlags& flags_;
  platform::Mutex lock_;
  platform::Condition changed_;
  int pending_ GUARDED_BY(lock_) = 0;
  bool hurries_ GUARDED_BY(lock_) = false;
};

}  // namespace tunnel
