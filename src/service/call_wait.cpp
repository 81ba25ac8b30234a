#include "service/call_wait.h"

#include <algorithm>

namespace service {
namespace {

// How soon a stop is noticed.
constexpr std::chrono::milliseconds kLookEvery{20};

}  // namespace

void CallWait::Begin() {
  const platform::MutexLock held(lock_);
  result_.reset();
}

void CallWait::Finish(CallResult result) noexcept {
  {
    const platform::MutexLock held(lock_);
    result_ = result;
  }
  changed_.NotifyAll();
}

// Looks for the stop instead of having it call: a std::stop_callback that is destroyed while
// another thread runs it waits for that thread, and mingw-w64's library was seen to wait for ever.
std::optional<CallResult> CallWait::Await(std::chrono::milliseconds limit,
                                          const std::stop_token& stop) {
  const auto end = std::chrono::steady_clock::now() + limit;
  const platform::MutexLock held(lock_);
  while (!result_ && !stop.stop_requested()) {
    const auto left =
        std::chrono::ceil<std::chrono::milliseconds>(end - std::chrono::steady_clock::now());
    if (left.count() <= 0) return std::nullopt;
    changed_.WaitFor(lock_, std::min(left, kLookEvery));
  }
  return stop.stop_requested() ? std::nullopt : result_;
}

}  // namespace service
