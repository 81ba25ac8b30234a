#include "service/call_wait.h"

namespace service {

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

std::optional<CallResult> CallWait::Await(std::chrono::milliseconds limit,
                                          const std::stop_token& stop) {
  // The lock makes sure that the waiter either sees the request or hears of it.
  const std::stop_callback wake(stop, [this] {
    { const platform::MutexLock held(lock_); }
    changed_.NotifyAll();
  });
  const auto end = std::chrono::steady_clock::now() + limit;
  const platform::MutexLock held(lock_);
  while (!result_ && !stop.stop_requested()) {
    const auto left =
        std::chrono::ceil<std::chrono::milliseconds>(end - std::chrono::steady_clock::now());
    if (left.count() <= 0) return std::nullopt;
    changed_.WaitFor(lock_, left);
  }
  return stop.stop_requested() ? std::nullopt : result_;
}

}  // namespace service
