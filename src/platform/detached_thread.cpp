#include "platform/detached_thread.h"

#include <future>
#include <thread>
#include <utility>

namespace platform {

void StartDetached(std::function<void()> body) {
  std::promise<void> detached;
  std::thread([body = std::move(body), begin = detached.get_future().share()]() noexcept {
    begin.wait();
    body();
  }).detach();
  detached.set_value();
}

}  // namespace platform
