#include <gtest/gtest.h>

#include <atomic>
#include <random>
#include <stdexcept>
#include <thread>

#include "tunnel/test_packets.h"
#include "tunnel/test_session.h"

namespace tunnel {
namespace {

// Starts and stops that meet at moments nobody chose.
class SessionRaceTest : public SessionFixture {};

TEST_F(SessionRaceTest, StopAtAnyMomentOfAStartLeavesNothing) {
  // The moments reach from before the start to well after it, on slow machines too.
  const auto begin = std::chrono::steady_clock::now();
  session_->Start(request_);
  const std::chrono::nanoseconds startTime = std::chrono::steady_clock::now() - begin;
  session_->Stop();
  std::mt19937 random(20240501);
  std::uniform_int_distribution<std::chrono::nanoseconds::rep> moment(0, 3 * startTime.count());
  int stopped = 0;
  for (int round = 0; round < 200; ++round) {
    std::atomic<bool> go{false};
    std::thread starter([&]() {
      go = true;
      try {
        session_->Start(request_);
        driver_.Capture(PacketOf(kPing), {});
      } catch (const std::runtime_error&) {
      }
    });
    while (!go) std::this_thread::yield();
    const auto until = std::chrono::steady_clock::now() + std::chrono::nanoseconds(moment(random));
    while (std::chrono::steady_clock::now() < until) std::this_thread::yield();
    if (round % 4 == 0) relay_.CutConnection();
    if (session_->Stop() == L"软件隧道已停止。") ++stopped;
    starter.join();
    // A start that only began after the stop was done has succeeded.
    if (session_->IsRunning()) session_->Stop();
    ExpectNothingLeft();
  }
  EXPECT_GT(stopped, 0);
}

TEST_F(SessionRaceTest, ManyThreadsMayStartAndStopAtOnce) {
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([this, i]() {
      for (int round = 0; round < 10; ++round) {
        try {
          if (i % 2 == 0) session_->Start(request_);
        } catch (const std::runtime_error&) {
        }
        if (i % 2 != 0) session_->Stop();
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  session_->Stop();
  ExpectNothingLeft();
}

}  // namespace
}  // namespace tunnel
