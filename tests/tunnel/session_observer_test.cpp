#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include "platform/mutex.h"
#include "tunnel/test_session.h"

namespace tunnel {
namespace {

// The session's reports to its observer.
class SessionObserverTest : public SessionFixture {};

TEST_F(SessionObserverTest, EachLossAndReturnIsReportedOnce) {
  std::atomic<int> losses{0};
  std::atomic<int> returns{0};
  TunnelObserver observer;
  observer.linkChanged = [&](bool connected) { ++(connected ? returns : losses); };
  session_->Observe(std::move(observer));
  session_->Start(request_);
  ASSERT_TRUE(relay_.WaitForConnections(1));
  EXPECT_EQ(losses + returns, 0);
  world_.HoldPauses();
  relay_.SetBehaviour(TestRelay::Refuse());
  relay_.CutConnection();
  world_.ReleasePause();
  ASSERT_TRUE(world_.WaitForPauses(2));
  EXPECT_EQ(losses, 1);
  EXPECT_EQ(returns, 0);
  relay_.SetBehaviour(relay_.Serve());
  world_.ReleasePause();
  ASSERT_TRUE(world_.WaitForUdpStarts(2));
  session_->Stop();
  EXPECT_EQ(losses, 1);
  EXPECT_EQ(returns, 1);
}

TEST_F(SessionObserverTest, EachReasonOfAFailedReconnectIsReportedOnce) {
  platform::Mutex lock;
  std::vector<std::string> reasons;
  TunnelObserver observer;
  observer.reconnectFailed = [&](const std::string& reason) {
    const platform::MutexLock held(lock);
    reasons.push_back(reason);
  };
  session_->Observe(std::move(observer));
  session_->Start(request_);
  ASSERT_TRUE(relay_.WaitForConnections(1));
  world_.HoldPauses();
  relay_.SetBehaviour([this](TestPeer& peer) {
    relay_.TakeRequest(peer);
    peer.Send("HTTP/1.1 503 Gone\r\n\r\n");
    peer.WaitForEnd();
  });
  relay_.CutConnection();
  const auto failAttempts = [&](std::size_t pauses) {
    world_.ReleasePause();
    return world_.WaitForPauses(pauses);
  };
  ASSERT_TRUE(failAttempts(2) && failAttempts(3));
  relay_.SetBehaviour(TestRelay::Refuse());
  ASSERT_TRUE(failAttempts(4) && failAttempts(5));
  relay_.SetBehaviour(relay_.Serve());
  world_.ReleasePause();
  ASSERT_TRUE(relay_.WaitForConnections(2));
  relay_.SetBehaviour(TestRelay::Refuse());
  relay_.CutConnection();
  ASSERT_TRUE(world_.WaitForPauses(6) && failAttempts(7));
  session_->Stop();
  const std::string refused = "WebSocket handshake receive failed, error 0";
  EXPECT_EQ(reasons, (std::vector<std::string>{"WebSocket HTTP upgrade failed, status 503", refused,
                                               refused}));
}

TEST_F(SessionObserverTest, AttemptsWhoseUdpPathFailsBelongToTheLossBefore) {
  platform::Mutex lock;
  std::vector<bool> changes;
  std::vector<std::string> reasons;
  std::vector<bool> wasConnected;
  TunnelObserver observer;
  observer.linkChanged = [&](bool connected) {
    const platform::MutexLock held(lock);
    changes.push_back(connected);
  };
  observer.reconnectFailed = [&](const std::string& reason) {
    const platform::MutexLock held(lock);
    reasons.push_back(reason);
    wasConnected.push_back(session_->IsRelayConnected());
  };
  session_->Observe(std::move(observer));
  session_->Start(request_);
  ASSERT_TRUE(relay_.WaitForConnections(1));
  std::atomic<std::size_t> ended{0};
  relay_.SetBehaviour([&](TestPeer& peer) {
    relay_.Serve()(peer);  // until the client ends the connection
    ++ended;
  });
  world_.HoldPauses();
  world_.udpError = "UDP socket failed.";
  relay_.CutConnection();
  for (std::size_t attempt = 1; attempt <= 4; ++attempt) {
    world_.ReleasePause();
    ASSERT_TRUE(world_.WaitForPauses(attempt + 1));
    EXPECT_FALSE(session_->IsRelayConnected());
    // The half-open connection must not stay open, unread, during the wait.
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(5);
    while (ended < attempt && std::chrono::steady_clock::now() < deadline) {
      std::this_thread::yield();
    }
    EXPECT_EQ(ended, attempt);
  }
  world_.udpError = nullptr;
  world_.ReleasePause();
  ASSERT_TRUE(world_.WaitForUdpStarts(2));
  session_->Stop();
  EXPECT_EQ(changes, (std::vector<bool>{false, true}));
  EXPECT_EQ(reasons, std::vector<std::string>{"UDP socket failed."});
  EXPECT_EQ(wasConnected, std::vector<bool>{false});
}

TEST_F(SessionObserverTest, TheUdpPathsReportsReachTheObserver) {
  world_.UdpHooks().readyChanged(true);  // without an observer
  std::vector<bool> reports;
  TunnelObserver observer;
  observer.udpChanged = [&](bool ready) { reports.push_back(ready); };
  session_->Observe(std::move(observer));
  world_.UdpHooks().readyChanged(false);
  world_.UdpHooks().readyChanged(true);
  EXPECT_EQ(reports, (std::vector<bool>{false, true}));
}

}  // namespace
}  // namespace tunnel
