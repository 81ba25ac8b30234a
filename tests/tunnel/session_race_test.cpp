#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <optional>
#include <random>
#include <stdexcept>
#include <thread>

#include "tunnel/packets/test_packets.h"
#include "tunnel/relay/test_udp_relay.h"
#include "tunnel/relay/udp_relay.h"
#include "tunnel/test_session.h"

namespace tunnel {
namespace {

using Clock = std::chrono::steady_clock;

constexpr int kRounds = RACE_ROUNDS;
// The relay's time-out of 8 s plus one second. A stop closes its handles first, so it takes far
// less.
constexpr std::chrono::seconds kLongestStop{9};

// Starts, losses and stops at random moments, on real sockets.
class SessionRaceTest : public SessionFixture {
 protected:
  SessionRaceTest() {
    SessionDeps deps = world_.Deps(driver_);
    deps.makeUdpRelay = [](RelayHost& host) {
      return std::make_unique<SocketUdpRelay>(host, RealUdpNetwork());
    };
    session_ = std::make_unique<Session>(std::move(deps));
  }

  void TearDown() override {
    RecordProperty("longest_stop_ms", std::to_string(longestStop_.count()));
    EXPECT_LT(longestStop_, kLongestStop);
    SessionFixture::TearDown();
  }

  // Neither reads nor answers, until the client closes the connection.
  static TestRelay::Behaviour Hang() {
    return [](TestPeer& peer) { peer.WaitForEnd(); };
  }

  std::chrono::nanoseconds Moment(std::chrono::nanoseconds latest) {
    return std::chrono::nanoseconds(
        std::uniform_int_distribution<std::chrono::nanoseconds::rep>(0, latest.count())(random_));
  }
  static void Await(Clock::time_point moment) {
    while (Clock::now() < moment) std::this_thread::yield();
  }

  std::wstring StopTimed() {
    const Clock::time_point before = Clock::now();
    std::wstring text = session_->Stop();
    longestStop_ = std::max(
        longestStop_, std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - before));
    return text;
  }

  void StartSomehow() {
    try {
      session_->Start(request_);
      driver_.Capture(PacketOf(kPing), {});
    } catch (const std::runtime_error&) {
      // Interrupted by the stop, or refused by the relay.
    }
  }

  std::mt19937 random_{20240501};
  std::chrono::milliseconds longestStop_{0};
  TestUdpRelay udp_{relay_.Port()};
};

TEST_F(SessionRaceTest, StopAtAnyMomentOfAStartLeavesNothing) {
  // From before the start until well after it, even on slow machines.
  const Clock::time_point begin = Clock::now();
  session_->Start(request_);
  const std::chrono::nanoseconds startTime = Clock::now() - begin;
  session_->Stop();
  int stopped = 0;
  for (int round = 0; round < kRounds; ++round) {
    // One in four waits for an acknowledgement, one in eight for the relay's handshake.
    udp_.answersHellos = round % 4 != 1;
    relay_.SetBehaviour(round % 8 == 3 ? Hang() : relay_.Serve());
    std::atomic<bool> go{false};
    std::thread starter([&]() {
      go = true;
      StartSomehow();
    });
    while (!go) std::this_thread::yield();
    Await(Clock::now() + Moment(3 * startTime));
    if (round % 4 == 0) relay_.CutConnection();
    if (StopTimed() == L"软件隧道已停止。") ++stopped;
    starter.join();
    // A start that began after the stop may have succeeded.
    if (session_->IsRunning()) session_->Stop();
    ExpectNothingLeft();
  }
  EXPECT_GT(stopped, 0);
}

TEST_F(SessionRaceTest, StopAtAnyMomentOfAReconnectLeavesNothing) {
  std::optional<std::chrono::nanoseconds> reconnectTime;
  for (int round = 0; round < kRounds; ++round) {
    udp_.answersHellos = true;
    relay_.SetBehaviour(relay_.Serve());
    session_->Start(request_);
    ASSERT_TRUE(relay_.WaitForConnections(1));
    if (!reconnectTime) {
      const Clock::time_point begin = Clock::now();
      relay_.CutConnection();
      while (udp_.Hellos() < 2) std::this_thread::yield();
      reconnectTime = Clock::now() - begin;
    }
    udp_.answersHellos = round % 4 != 1;
    const TestRelay::Behaviour next[] = {relay_.Serve(), Hang(), TestRelay::Refuse()};
    relay_.SetBehaviour(next[static_cast<std::size_t>(round) % std::size(next)]);
    relay_.CutConnection();
    driver_.Capture(PacketOf(kPing), {});
    Await(Clock::now() + Moment(3 * *reconnectTime));
    StopTimed();
    ExpectNothingLeft();
  }
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

TEST_F(SessionRaceTest, PacketsGoByUdpOnceItIsAcknowledged) {
  session_->Start(request_);
  driver_.Capture(PacketOf(kPing), {});
  while (udp_.Packets() == 0) std::this_thread::yield();
  EXPECT_TRUE(relay_.Frames().empty());
  session_->Stop();
}

}  // namespace
}  // namespace tunnel
