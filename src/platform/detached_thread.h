#pragma once

#include <future>
#include <thread>
#include <utility>

namespace platform {

// Runs `body` on a detached thread; an exception from it ends the program. Throws
// std::system_error when no thread can be created. Any thread.
template <typename Body>
void StartDetached(Body body) {
  std::promise<void> detached;
  // `body` runs only once detached: mingw-w64 can hang a thread that exits during detach().
  std::thread([body = std::move(body), isDetached = detached.get_future()]() mutable noexcept {
    isDetached.wait();
    body();
  }).detach();
  detached.set_value();
}

}  // namespace platform
