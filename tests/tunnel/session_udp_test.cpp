#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <stdexcept>
#include <thread>

#include "tunnel/test_session.h"

// The session opens, closes and stops the UDP path.
namespace tunnel {
namespace {

using Events = std::vector<std::string>;

class SessionUdpTest : public SessionFixture {
 protected:
  void StartAndLoseTheRelay() {
    world_.HoldPauses();
    session_->Start(request_);
    ASSERT_TRUE(relay_.WaitForConnections(1));
    world_.Take();
    relay_.CutConnection();
    ASSERT_TRUE(world_.WaitForPauses(1));
  }
};

TEST_F(SessionUdpTest, TheLostRelayIsClosedAndTheUdpPathOpenWhileTheSessionWaits) {
  std::atomic<bool> isEnded{false};
  relay_.SetBehaviour([this, &isEnded](TestPeer& peer) {
    relay_.Serve()(peer);  // until the client ends the connection
    isEnded = true;
  });
  world_.HoldPauses();
  session_->Start(request_);
  world_.Take();
  relay_.Push(ServerFrame(0x88, {}));  // the client may be gone before this returns
  ASSERT_TRUE(world_.WaitForPauses(1));
  while (!isEnded) std::this_thread::yield();
  EXPECT_EQ(world_.Take(), Events{});
}

TEST_F(SessionUdpTest, EachReconnectClosesTheUdpPathAndASuccessOpensIt) {
  StartAndLoseTheRelay();
  relay_.SetBehaviour(TestRelay::Refuse());
  world_.ReleasePause();
  ASSERT_TRUE(world_.WaitForPauses(2));
  EXPECT_EQ(world_.Take(), (Events{"udp close with 2 handles", "udp join"}));
  relay_.SetBehaviour(relay_.Serve());
  world_.ReleasePause();
  ASSERT_TRUE(world_.WaitForUdpStarts(2));
  EXPECT_EQ(world_.Take(),
            (Events{"udp close with 2 handles", "udp join", "udp start with 2 handles"}));
}

TEST_F(SessionUdpTest, StopReachesAStartThatWaitsForTheUdpPath) {
  world_.udpStartEndsAfter = 1;
  std::atomic<bool> failed{false};
  std::thread starter([&]() {
    try {
      session_->Start(request_);
    } catch (const std::runtime_error&) {
      failed = true;
    }
  });
  EXPECT_TRUE(world_.WaitForUdpStarts(1));
  session_->Stop();
  starter.join();
  EXPECT_TRUE(failed);
  EXPECT_TRUE(driver_.Opened().empty());
  ExpectNothingLeft();
}

TEST_F(SessionUdpTest, AUdpPathThatOpensAfterTheStopHasClosedItIsClosedAgain) {
  StartAndLoseTheRelay();
  world_.udpStartEndsAfter = 2;  // the stop closes it at once, and again when it tears down
  world_.ReleasePause();
  ASSERT_TRUE(world_.WaitForUdpStarts(2));
  world_.Take();
  session_->Stop();
  const Events events = world_.Take();
  const auto started = std::ranges::find(events, "udp started");
  const auto closed = std::find(started, events.end(), "udp close with 0 handles");
  ASSERT_NE(closed, events.end());
  EXPECT_NE(std::find(closed, events.end(), "udp join"), events.end());
  ExpectNothingLeft();
}

TEST_F(SessionUdpTest, TheObserverMayBeSetWhileThePathReports) {
  std::atomic<int> reports{0};
  std::thread path([this]() {
    for (int i = 0; i < 1000; ++i) world_.UdpHooks().readyChanged(i % 2 == 0);
  });
  for (int i = 0; i < 100; ++i) {
    TunnelObserver observer;
    observer.udpChanged = [&reports](bool) { ++reports; };
    session_->Observe(std::move(observer));
  }
  path.join();
  world_.UdpHooks().readyChanged(true);
  EXPECT_GT(reports, 0);
}

TEST_F(SessionUdpTest, AFailedStartForgetsTheErrorOfTheTunnelBefore) {
  StartAndLoseTheRelay();
  relay_.SetBehaviour(TestRelay::Refuse());
  world_.ReleasePause();
  ASSERT_TRUE(world_.WaitForPauses(2));
  EXPECT_NE(session_->LastRelayError(), "");
  session_->Stop();
  EXPECT_THROW(session_->Start(request_), std::runtime_error);
  EXPECT_EQ(session_->LastRelayError(), "");
}

TEST_F(SessionUdpTest, ASecondStartEndsTheWaitBeforeAReconnect) {
  StartAndLoseTheRelay();
  session_->Start(request_);
  EXPECT_TRUE(session_->IsRelayConnected());
  EXPECT_EQ(world_.UdpStarts().size(), 2U);
}

}  // namespace
}  // namespace tunnel
