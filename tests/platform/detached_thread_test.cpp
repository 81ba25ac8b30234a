#include "platform/detached_thread.h"

#include <gtest/gtest.h>

#include <future>
#include <memory>

namespace platform {
namespace {

TEST(DetachedThread, RunsBodiesThatEndAtOnce) {
  for (int i = 0; i < 500; ++i) {
    const auto ran = std::make_shared<std::promise<int>>();
    std::future<int> result = ran->get_future();
    StartDetached([ran, i] { ran->set_value(i); });
    EXPECT_EQ(result.get(), i);
  }
}

TEST(DetachedThread, ReleasesTheCapturesOfTheBody) {
  struct Held {
    std::promise<void> released;
    ~Held() { released.set_value(); }
  };
  auto held = std::make_shared<Held>();
  std::future<void> released = held->released.get_future();
  StartDetached([held] {});
  held.reset();
  released.wait();
}

TEST(DetachedThread, DoesNotWaitForTheBody) {
  std::promise<void> go;
  std::promise<void> ended;
  std::future<void> end = ended.get_future();
  StartDetached([&] {
    go.get_future().wait();
    ended.set_value();
  });
  go.set_value();
  end.wait();
}

}  // namespace
}  // namespace platform
