#include "tunnel/relay/relay_link.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <stdexcept>
#include <thread>

#include "tunnel/relay/relay_threads.h"
#include "tunnel/relay/test_relay.h"

namespace tunnel {
namespace {

// A UDP path that is never ready.
class NoUdpRelay : public UdpRelay {
 public:
  void StartUdpRelay(const UdpRelayRequest&) override {}
  void Close() noexcept override {}
  void Join() noexcept override {}
  [[nodiscard]] bool IsReady() const noexcept override { return false; }
  bool SendUdpPacket(std::span<const std::byte>) override { return false; }
};

class RelayLinkTest : public testing::Test {
 protected:
  RelayLink::RelayPointer Connect() {
    link_.Connect(relay_.RelayUrl());
    return link_.Current();
  }
  std::string FailureOfConnect() {
    try {
      link_.Connect(relay_.RelayUrl());
    } catch (const std::runtime_error& error) {
      return error.what();
    }
    return {};
  }

  TestRelay relay_;
  TunnelFlags flags_;
  StopSignal signal_{flags_};
  RelayLink link_{signal_};
};

TEST_F(RelayLinkTest, HasNoRelayAtFirst) {
  EXPECT_EQ(link_.Current(), nullptr);
  EXPECT_FALSE(link_.IsConnected());
  EXPECT_FALSE(link_.ClearConnected());
  EXPECT_EQ(link_.LastError(), "");
  link_.Close();
  link_.Release();
}

TEST_F(RelayLinkTest, ANewRelayTakesTheOldOnesPlace) {
  const RelayLink::RelayPointer old = Connect();
  const RelayLink::RelayPointer fresh = Connect();
  EXPECT_NE(fresh, old);
  EXPECT_FALSE(old->IsConnected());
  EXPECT_TRUE(fresh->IsConnected());
}

TEST_F(RelayLinkTest, ASuccessIsMarkedAndForgetsTheLastError) {
  link_.SetLastError("getaddrinfo failed for relay host.");
  Connect();
  EXPECT_TRUE(link_.IsConnected());
  EXPECT_EQ(link_.LastError(), "");
  EXPECT_TRUE(link_.ClearConnected());
  EXPECT_FALSE(link_.IsConnected());
}

TEST_F(RelayLinkTest, AFailureLeavesNoRelay) {
  const RelayLink::RelayPointer old = Connect();
  link_.ClearConnected();
  relay_.SetBehaviour(TestRelay::Refuse());
  EXPECT_NE(FailureOfConnect(), "");
  EXPECT_EQ(link_.Current(), nullptr);
  EXPECT_FALSE(link_.IsConnected());
  EXPECT_FALSE(old->IsConnected());
}

TEST_F(RelayLinkTest, DroppingClosesAndReleasesTheRelay) {
  const RelayLink::RelayPointer relay = Connect();
  link_.Drop(relay);
  EXPECT_FALSE(relay->IsConnected());
  EXPECT_EQ(link_.Current(), nullptr);
  EXPECT_TRUE(link_.IsConnected());  // until a reconnect begins
}

TEST_F(RelayLinkTest, DroppingARelayThatWasReplacedLeavesTheOneInItsPlace) {
  const RelayLink::RelayPointer old = Connect();
  const RelayLink::RelayPointer fresh = Connect();
  link_.Drop(old);
  EXPECT_EQ(link_.Current(), fresh);
  EXPECT_TRUE(fresh->IsConnected());
}

TEST_F(RelayLinkTest, AClosedRelayStaysCurrentUntilItIsReleased) {
  const RelayLink::RelayPointer relay = Connect();
  link_.Close();
  EXPECT_FALSE(relay->IsConnected());
  EXPECT_EQ(link_.Current(), relay);
  link_.Release();
  EXPECT_EQ(link_.Current(), nullptr);
  EXPECT_EQ(relay.use_count(), 1);
}

TEST_F(RelayLinkTest, TheLastErrorMayBeReadWhileItChanges) {
  const std::string texts[] = {"getaddrinfo failed for relay host.", "UDP socket failed."};
  link_.SetLastError(texts[0]);
  std::atomic<bool> isDone{false};
  std::thread writer([&]() {
    for (std::size_t i = 0; i < 1000; ++i) link_.SetLastError(texts[i % 2]);
    isDone = true;
  });
  while (!isDone) EXPECT_NE(std::ranges::find(texts, link_.LastError()), std::end(texts));
  writer.join();
}

TEST_F(RelayLinkTest, NothingIsConnectedAfterAStop) {
  signal_.Request();
  EXPECT_EQ(FailureOfConnect(), "The relay connection was closed.");
  EXPECT_TRUE(relay_.Requests().empty());
  EXPECT_EQ(link_.Current(), nullptr);
}

TEST_F(RelayLinkTest, TheSenderLeavesARelayAloneThatIsStillConnecting) {
  std::atomic<bool> go{false};
  relay_.SetBehaviour([&](TestPeer& peer) {
    relay_.TakeRequest(peer);
    while (!go) std::this_thread::yield();
    peer.AcceptUpgrade();
    peer.WaitForEnd();
  });
  std::string failure;
  std::thread connector([&]() { failure = FailureOfConnect(); });
  EXPECT_TRUE(relay_.WaitForRequests(1));
  flags_.running = true;
  PacketQueue queue;
  queue.Start();
  for (int i = 0; i < 2; ++i) queue.EnqueueOutbound(Pattern(20));
  NoUdpRelay udp;
  std::thread sender([&]() { SenderLoop(flags_, queue, link_, udp); });
  while (queue.Size() > 0) std::this_thread::yield();  // the first has been handled
  go = true;
  connector.join();
  EXPECT_EQ(failure, "");
  EXPECT_TRUE(link_.IsConnected());
  queue.Stop();
  sender.join();
}

}  // namespace
}  // namespace tunnel
