#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <vector>

#include "platform/mutex.h"
#include "tunnel/test_session.h"

namespace tunnel {
namespace {

// What a session tells its observer.
class SessionObserverTest : public SessionFixture {};

TEST_F(SessionObserverTest, TheObserverLearnsOfEachLossAndReturnOnceEach) {
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

TEST_F(SessionObserverTest, TheObserverLearnsWhyAReconnectFailsOncePerReason) {
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

TEST_F(SessionObserverTest, TheUdpPathsReportsReachTheObserver) {
  world_.UdpHooks().readyChanged(true);  // nobody listens yet
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
