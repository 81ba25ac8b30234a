#include "service/http_call.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>

namespace service {
namespace {

using std::chrono::milliseconds;

constexpr milliseconds kForEver{3'600'000};

TEST(CallWait, ReturnsAResultThatHasAlreadyArrived) {
  CallWait wait;
  wait.Begin();
  wait.Finish({0, 7});
  const auto result = wait.Await(kForEver, {});
  ASSERT_TRUE(result.has_value());
  EXPECT_EQ(result->error, 0u);
  EXPECT_EQ(result->bytes, 7u);
}

TEST(CallWait, WaitsForTheOtherThread) {
  CallWait wait;
  wait.Begin();
  std::thread system([&wait] { wait.Finish({12030, 0}); });
  const auto result = wait.Await(kForEver, {});
  system.join();
  ASSERT_TRUE(result.has_value());
  EXPECT_EQ(result->error, 12030u);
}

TEST(CallWait, EndsAtItsLimit) {
  CallWait wait;
  wait.Begin();
  const auto begin = std::chrono::steady_clock::now();
  EXPECT_FALSE(wait.Await(milliseconds(20), {}).has_value());
  EXPECT_GE(std::chrono::steady_clock::now() - begin, milliseconds(20));
}

TEST(CallWait, DiscardsTheResultOfThePreviousCall) {
  CallWait wait;
  wait.Begin();
  wait.Finish({0, 7});
  wait.Begin();
  EXPECT_FALSE(wait.Await(milliseconds(0), {}).has_value());
}

TEST(CallWait, EndsWhenStoppedBeforeOrDuringTheWait) {
  CallWait wait;
  for (const bool before : {true, false}) {
    std::stop_source stop;
    wait.Begin();
    if (before) stop.request_stop();
    std::thread closer([&] { stop.request_stop(); });
    EXPECT_FALSE(wait.Await(kForEver, stop.get_token()).has_value());
    closer.join();
  }
}

TEST(CallWait, AStopTakesPrecedenceOverAResult) {
  CallWait wait;
  std::stop_source stop;
  wait.Begin();
  wait.Finish({});
  stop.request_stop();
  EXPECT_FALSE(wait.Await(kForEver, stop.get_token()).has_value());
}

// The wait must end whenever the stop is requested; a lost wake-up would hang it.
TEST(CallWait, NeverMissesAStop) {
  for (int round = 0; round < 100; ++round) {
    CallWait wait;
    std::stop_source stop;
    std::atomic<bool> goes{false};
    wait.Begin();
    std::thread closer([&] {
      while (!goes) std::this_thread::yield();
      stop.request_stop();
    });
    goes = true;
    EXPECT_FALSE(wait.Await(kForEver, stop.get_token()).has_value());
    closer.join();
  }
}

}  // namespace
}  // namespace service
