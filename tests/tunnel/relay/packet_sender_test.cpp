#include "tunnel/relay/relay_threads.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <future>
#include <thread>

#include "platform/mutex.h"
#include "tunnel/packets/bytes.h"
#include "tunnel/packets/queue_reader.h"
#include "tunnel/relay/test_relay.h"

namespace tunnel {
namespace {

class FakeUdpRelay : public UdpRelay {
 public:
  void StartUdpRelay(const UdpRelayRequest&) override {}
  void Close() noexcept override {}
  void Join() noexcept override {}
  [[nodiscard]] bool IsReady() const noexcept override { return isReady; }
  bool SendUdpPacket(std::span<const std::byte> packet) override {
    if (refuses) return false;
    const platform::MutexLock held(lock_);
    sizes_.push_back(packet.size());
    return true;
  }
  std::vector<std::size_t> Sizes() {
    const platform::MutexLock held(lock_);
    return sizes_;
  }

  std::atomic<bool> isReady{true};
  std::atomic<bool> refuses{false};

 private:
  platform::Mutex lock_;
  std::vector<std::size_t> sizes_ GUARDED_BY(lock_);
};

class PacketSenderTest : public testing::Test {
 protected:
  void SetUp() override {
    flags_.running = true;
    queue_.Start();
  }
  void TearDown() override { StopSender(); }
  void StartSender() {
    sender_ = std::thread([this]() { SenderLoop(flags_, queue_, link_, udp_); });
  }
  void StopSender() {
    flags_.stopping = true;
    queue_.Stop();
    if (sender_.joinable()) sender_.join();
  }
  void Enqueue(std::initializer_list<std::size_t> sizes) {
    for (const std::size_t size : sizes) queue_.EnqueueOutbound(Pattern(size));
  }
  std::vector<std::size_t> FrameSizes() {
    std::vector<std::size_t> sizes;
    for (const TestPeer::Frame& frame : relay_.Frames()) sizes.push_back(frame.payload.size());
    return sizes;
  }

  TestRelay relay_;
  TunnelFlags flags_;
  StopSignal signal_{flags_};
  PacketQueue queue_;
  RelayLink link_{signal_};
  FakeUdpRelay udp_;
  std::thread sender_;
};

TEST_F(PacketSenderTest, SmallPacketsGoByUdpWhileItIsReady) {
  link_.Connect(relay_.RelayUrl());
  Enqueue({20, 1330, 1331, 1500, 1});
  StartSender();
  ASSERT_TRUE(relay_.WaitForFrames(2));
  Enqueue({1400});
  ASSERT_TRUE(relay_.WaitForFrames(3));
  EXPECT_EQ(FrameSizes(), (std::vector<std::size_t>{1331, 1500, 1400}));
  EXPECT_EQ(udp_.Sizes(), (std::vector<std::size_t>{20, 1330, 1}));
}

TEST_F(PacketSenderTest, EverythingGoesByWebSocketWhileUdpIsNotReady) {
  link_.Connect(relay_.RelayUrl());
  udp_.isReady = false;
  Enqueue({20, 1330, 1331});
  StartSender();
  ASSERT_TRUE(relay_.WaitForFrames(3));
  EXPECT_EQ(FrameSizes(), (std::vector<std::size_t>{20, 1330, 1331}));
  EXPECT_TRUE(udp_.Sizes().empty());
}

TEST_F(PacketSenderTest, APacketThatUdpRefusesGoesByWebSocket) {
  link_.Connect(relay_.RelayUrl());
  udp_.refuses = true;
  Enqueue({20});
  StartSender();
  ASSERT_TRUE(relay_.WaitForFrames(1));
  EXPECT_EQ(FrameSizes(), std::vector<std::size_t>{20});
}

TEST_F(PacketSenderTest, UdpGoesOnWithoutTheWebSocketAndTheRestIsLost) {
  Enqueue({1331, 20});
  StartSender();
  while (udp_.Sizes().empty()) std::this_thread::yield();
  EXPECT_EQ(queue_.Size(), 0U);
  EXPECT_TRUE(relay_.Frames().empty());
}

TEST_F(PacketSenderTest, AFailedFrameDropsTheRelay) {
  link_.Connect(relay_.RelayUrl());
  const RelayLink::RelayPointer lost = link_.Current();
  ASSERT_TRUE(relay_.WaitForConnections(1));
  relay_.CutConnection();
  udp_.isReady = false;
  StartSender();
  while (link_.Current() != nullptr) {
    Enqueue({1331});
    std::this_thread::yield();
  }
  StopSender();
  EXPECT_FALSE(lost->IsConnected());
  EXPECT_TRUE(link_.IsConnected());  // until a reconnect begins
}

TEST_F(PacketSenderTest, WhileTheRelayDoesNotReadTheNewestWaitAndAStopEndsItSoon) {
  constexpr std::size_t kMoreThanAnySystemBuffers = 64U << 20;
  constexpr std::uint32_t kCount = 10000;
  std::promise<void> release;
  relay_.SetBehaviour([this, end = release.get_future().share()](TestPeer& peer) {
    if (!relay_.TakeRequest(peer).empty() && peer.AcceptUpgrade()) end.wait();
  });
  link_.Connect(relay_.RelayUrl());
  udp_.isReady = false;
  queue_.EnqueueOutbound(Packet(kMoreThanAnySystemBuffers));
  StartSender();
  while (queue_.Size() > 0) std::this_thread::yield();
  for (std::uint32_t number = 0; number < kCount; ++number) {
    Packet packet(20);
    WriteU32Be(packet, 0, number);
    queue_.EnqueueOutbound(packet);
  }

  const auto start = std::chrono::steady_clock::now();
  flags_.stopping = true;
  link_.Close();
  sender_.join();
  // Well before the send's own time-out of 8 seconds.
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(5));
  release.set_value();
  ASSERT_EQ(queue_.Size(), PacketQueue::kCapacity);
  QueueReader reader(queue_);
  for (std::uint32_t number = kCount - PacketQueue::kCapacity; number < kCount; ++number) {
    ASSERT_EQ(ReadU32Be(reader.Next().value(), 0), number);
  }
}

TEST_F(PacketSenderTest, AStopEndsTheWaitForPackets) {
  StartSender();
  StopSender();
  EXPECT_FALSE(sender_.joinable());
}

TEST(StopSignal, WaitsUntilSetAndCountsItsRequests) {
  TunnelFlags flags;
  StopSignal signal(flags);
  EXPECT_FALSE(signal.WaitFor(std::chrono::milliseconds(1)));
  std::thread stopper([&]() { signal.Request(); });
  EXPECT_TRUE(signal.WaitFor(std::chrono::hours(1)));
  stopper.join();
  EXPECT_TRUE(flags.stopping);
  EXPECT_FALSE(signal.TryClear());  // its stop has not finished
  EXPECT_TRUE(signal.IsSet());
  signal.Settle();
  EXPECT_TRUE(signal.IsSet());
  EXPECT_TRUE(signal.TryClear());
  EXPECT_FALSE(flags.stopping);
}

TEST(StopSignal, HurryEndsOneWait) {
  TunnelFlags flags;
  StopSignal signal(flags);
  signal.Hurry();
  EXPECT_TRUE(signal.WaitFor(std::chrono::hours(1)));
  EXPECT_FALSE(signal.WaitFor(std::chrono::milliseconds(1)));
  std::thread hurrier([&]() { signal.Hurry(); });
  EXPECT_TRUE(signal.WaitFor(std::chrono::hours(1)));
  hurrier.join();
  signal.Hurry();
  signal.ForgetHurry();
  EXPECT_FALSE(signal.WaitFor(std::chrono::milliseconds(1)));
  signal.Hurry();
  ASSERT_TRUE(signal.TryClear());  // a new start clears the hurry signal
  EXPECT_FALSE(signal.WaitFor(std::chrono::milliseconds(1)));
}

}  // namespace
}  // namespace tunnel
