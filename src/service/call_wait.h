#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <stop_token>

#include "platform/mutex.h"

namespace service {

// What an asynchronous call came to.
struct CallResult {
  std::uint32_t error = 0;  // the system's code; 0: it succeeded
  std::uint32_t bytes = 0;  // available or read, of calls that report such a number
};

// Hands the result of an asynchronous call from the system's thread to the thread that waits for
// it. One call at a time.
//
// Threads: Finish() any; Begin() and Await() the one that makes the calls.
class CallWait {
 public:
  // Before each call, which may finish before it returns.
  void Begin() EXCLUDES(lock_);
  void Finish(CallResult result) noexcept EXCLUDES(lock_);
  // Empty when the call had not finished within `limit` or when `stop` was requested, which ends
  // the wait within milliseconds. The call may then finish at any later time, unseen.
  [[nodiscard]] std::optional<CallResult> Await(std::chrono::milliseconds limit,
                                                const std::stop_token& stop) EXCLUDES(lock_);

 private:
  platform::Mutex lock_;
  platform::Condition changed_;
  std::optional<CallResult> result_ GUARDED_BY(lock_);
};

}  // namespace service
