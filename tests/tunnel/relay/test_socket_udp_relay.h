#pragma once

#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>
#include <utility>
#include <vector>

#include "tunnel/relay/fake_datagrams.h"
#include "tunnel/relay/fake_relay_host.h"
#include "tunnel/relay/udp_relay.h"

namespace tunnel {

inline constexpr std::uint64_t kToken = 0xA1B2C3D4E5F60718;
inline constexpr std::uint64_t kLaterToken = 77;
inline constexpr int kConnectionReset = 10054;

// A UDP path on a fake clock and network. By default the relay acknowledges each hello with kToken.
class SocketUdpRelayFixture : public testing::Test {
 protected:
  SocketUdpRelayFixture() {
    host_.inbound = [this](std::span<std::byte> packet) {
      const platform::MutexLock held(lock_);
      inbound_.emplace_back(packet.begin(), packet.end());
    };
    host_.keepGoing = [this]() { return keepGoing_.load(); };
    host_.readyChanged = [this](bool ready) {
      const platform::MutexLock held(lock_);
      reports_.push_back(ready);
    };
  }
  void SetUp() override { Acknowledge(kToken); }
  void TearDown() override {
    relay_.Close();
    relay_.Join();
    EXPECT_EQ(world_.OpenSockets(), 0);
  }

  void Acknowledge(std::uint64_t token) {
    world_.AnswerHellosWith([token]() { return std::vector<Bytes>{AcknowledgementOf(token)}; });
  }
  void AcknowledgeNothing() { world_.AnswerHellosWith(nullptr); }
  void Start() { relay_.StartUdpRelay({L"http://relay.example:31080", L" C1 ", L"ENG-1"}); }
  void Restart() {
    relay_.Close();
    relay_.Join();
    Start();
  }
  // Advances by one keep-alive period and waits until its effects are complete.
  void PassKeepAlive() {
    const std::size_t before = world_.Sent().size();
    ASSERT_TRUE(world_.WaitForSleeper());
    world_.Advance(std::chrono::seconds(15));
    ASSERT_TRUE(world_.WaitForSent(before + 1));
    ASSERT_TRUE(world_.WaitForSleeper());
    ASSERT_TRUE(world_.WaitForQuiet());
  }
  void Receive(Bytes datagram) {
    world_.Deliver(std::move(datagram));
    ASSERT_TRUE(world_.WaitForQuiet());
  }
  std::vector<Bytes> Inbound() {
    const platform::MutexLock held(lock_);
    return inbound_;
  }

  std::vector<bool> Reports() {
    const platform::MutexLock held(lock_);
    return reports_;
  }

  platform::Mutex lock_;
  std::vector<bool> reports_ GUARDED_BY(lock_);
  std::vector<Bytes> inbound_ GUARDED_BY(lock_);
  std::atomic<bool> keepGoing_{true};
  FakeDatagrams world_;
  FakeRelayHost host_;
  SocketUdpRelay relay_{host_, world_};
};

}  // namespace tunnel
