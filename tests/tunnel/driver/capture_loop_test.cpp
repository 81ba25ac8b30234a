#include "tunnel/driver/capture.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstring>
#include <thread>

#include "tunnel/driver/fake_driver.h"
#include "tunnel/packets/bytes.h"
#include "tunnel/packets/queue_reader.h"
#include "tunnel/packets/test_packets.h"

namespace tunnel {
namespace {

class CaptureLoopTest : public ::testing::Test {
 protected:
  CaptureLoopTest() {
    address_.flags = 0x00E20000;
    address_.interfaceIndex = 12;
    driver_.Load(fake_.Api());
    driver_.OpenCapture(L"true");
    driver_.OpenInject();
    queue_.Start();
    path_.Configure(0x0A630007, {{0xC0A80100, 24, 0xAC1F0000, 24, true}}, false);
    flags_.running = true;
  }
  ~CaptureLoopTest() override {
    Stop();
    driver_.Unload();
    EXPECT_EQ(fake_.Misuses(), std::vector<std::string>{});
  }

  void Start() {
    thread_ = std::thread([this] { end_ = CaptureLoop(flags_, driver_, path_); });
  }
  // In the order of a tunnel's stop: flags, handles, thread.
  void Stop() {
    flags_.running = false;
    flags_.stopping = true;
    driver_.CloseHandles();
    if (thread_.joinable()) thread_.join();
  }

  FakeDriver fake_;
  Driver driver_;
  PacketQueue queue_;
  QueueReader reader_{queue_};
  PacketPath path_{driver_, queue_};
  TunnelFlags flags_;
  WinDivertAddress address_;
  CaptureEnd end_ = CaptureEnd::Stopped;  // the thread's, until it is joined
  std::thread thread_;
};

TEST_F(CaptureLoopTest, PassesTunnelPacketsToThePath) {
  fake_.Capture(PacketOf(kUdp), address_);
  Start();
  EXPECT_EQ(reader_.Next(), PacketOf(kUdpAtSite));
}

TEST_F(CaptureLoopTest, PutsOtherPacketsBackWithTheirWholeRecord) {
  auto* bytes = reinterpret_cast<std::byte*>(&address_);
  for (std::size_t i = 0; i < sizeof(address_); ++i) bytes[i] = static_cast<std::byte>(i + 1);
  Packet igmp = PacketOf(kUdp);
  WriteU8(igmp, 9, 2);
  fake_.Capture(igmp, address_);
  Start();
  ASSERT_TRUE(fake_.WaitForSent(1));
  const auto sent = fake_.SentPackets();
  EXPECT_EQ(sent[0].packet, igmp);
  EXPECT_EQ(std::memcmp(&sent[0].address, &address_, sizeof(address_)), 0);
}

TEST_F(CaptureLoopTest, ADriverThatFailsForGoodDoesNotBusyLoop) {
  constexpr std::size_t kFailures = 30;
  fake_.FailNth(FakeDriver::Call::Receive, 1, 1'000'000);
  const auto begin = std::chrono::steady_clock::now();
  Start();
  ASSERT_TRUE(fake_.WaitForReceives(kFailures));
  EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(kFailures - 1));
}

TEST_F(CaptureLoopTest, PutsOtherPacketsBackUnchanged) {
  Packet igmp = PacketOf(kUdp);
  WriteU8(igmp, 9, 2);
  fake_.Capture(igmp, address_);
  fake_.Capture(PacketOf(kUdp), address_);
  Start();
  EXPECT_EQ(reader_.Next(), PacketOf(kUdpAtSite));
  const auto sent = fake_.SentPackets();
  ASSERT_EQ(sent.size(), 1U);
  EXPECT_EQ(sent[0].packet, igmp);
  EXPECT_EQ(sent[0].address.flags, address_.flags);
  EXPECT_EQ(sent[0].address.interfaceIndex, 12U);
}

TEST_F(CaptureLoopTest, ContinuesAfterAFailedReceive) {
  fake_.FailNth(FakeDriver::Call::Receive, 1);
  fake_.Capture(PacketOf(kUdp), address_);
  Start();
  EXPECT_EQ(reader_.Next(), PacketOf(kUdpAtSite));
}

// A driver that fails every receive at once must not keep a processor busy.
TEST_F(CaptureLoopTest, PausesAfterEachFailedReceive) {
  constexpr int kFailures = 20;
  for (int i = 0; i < kFailures; ++i) fake_.Capture(Packet(kMaxPacketBytes + 1), address_);
  fake_.Capture(PacketOf(kUdp), address_);
  const auto begin = std::chrono::steady_clock::now();
  Start();
  EXPECT_EQ(reader_.Next(), PacketOf(kUdpAtSite));
  // One millisecond each; a coarse system clock may shorten it.
  EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(kFailures) / 2);
  EXPECT_GE(fake_.Receives(), std::size_t{kFailures + 1});
}

TEST_F(CaptureLoopTest, AcceptsTheLargestPacketAndHasReadableBytesAfterIt) {
  fake_.ReadBehindPackets();
  Packet packet = PacketOf(kUdp);
  packet.resize(65535, std::byte{0x5A});
  WriteU16Be(packet, 2, 65535);
  fake_.Capture(packet, address_);
  Start();
  const auto left = reader_.Next();
  ASSERT_TRUE(left);
  EXPECT_EQ(left->size(), 65535U);
  EXPECT_TRUE(HasCorrectChecksums(*left));
}

TEST_F(CaptureLoopTest, EndsWhenTheHandleIsClosedUnderIt) {
  Start();
  ASSERT_TRUE(fake_.WaitForReceives(1));
  Stop();
  EXPECT_EQ(fake_.OpenHandles(), 0U);
  EXPECT_EQ(end_, CaptureEnd::Stopped);
}

TEST_F(CaptureLoopTest, DoesNotStartOnceStopped) {
  flags_.stopping = true;
  EXPECT_EQ(CaptureLoop(flags_, driver_, path_), CaptureEnd::Stopped);
  flags_.stopping = false;
  flags_.running = false;
  EXPECT_EQ(CaptureLoop(flags_, driver_, path_), CaptureEnd::Stopped);
  EXPECT_EQ(fake_.Receives(), 0U);
}

TEST_F(CaptureLoopTest, EndsQuietlyOnAFailedSend) {
  fake_.FailNth(FakeDriver::Call::Send, 1);
  fake_.Capture(Packet(10), address_);
  Start();
  thread_.join();
  EXPECT_EQ(end_, CaptureEnd::ByOtherError);
  EXPECT_TRUE(flags_.running);
  EXPECT_TRUE(driver_.CanInject());
}

TEST_F(CaptureLoopTest, EndsQuietlyOnFailedChecksums) {
  fake_.FailNth(FakeDriver::Call::Checksums, 1);
  fake_.Capture(PacketOf(kUdp), address_);
  Start();
  thread_.join();
  EXPECT_EQ(end_, CaptureEnd::ByOtherError);
  EXPECT_TRUE(flags_.running);
  EXPECT_EQ(queue_.Size(), 0U);
}

Packet FirstFragment(Packet packet) {
  WriteU16Be(packet, 6, 0x2000);
  return packet;
}

// The checksum of a fragmented packet cannot be computed from its first fragment.
TEST_F(CaptureLoopTest, EndsOnTheFirstFragmentOfEachProtocolAndSaysSo) {
  for (const Packet& packet : {PacketOf(kUdp), PacketOf(kSyn), PacketOf(kPing)}) {
    end_ = CaptureEnd::Stopped;
    fake_.Capture(FirstFragment(packet), address_);
    Start();
    thread_.join();
    EXPECT_EQ(end_, CaptureEnd::ByFragment);
    EXPECT_TRUE(flags_.running);
    EXPECT_TRUE(driver_.CanInject());
    EXPECT_EQ(queue_.Size(), 0U);
  }
}

TEST_F(CaptureLoopTest, AFragmentDuringAStopEndsAsStopped) {
  Start();
  ASSERT_TRUE(fake_.WaitForReceives(1));
  flags_.stopping = true;
  fake_.Capture(FirstFragment(PacketOf(kUdp)), address_);
  thread_.join();
  EXPECT_EQ(end_, CaptureEnd::Stopped);
}

TEST_F(CaptureLoopTest, AFragmentThatCannotBePutBackIsAnOtherError) {
  Packet igmp = FirstFragment(PacketOf(kUdp));
  WriteU8(igmp, 9, 2);
  fake_.FailNth(FakeDriver::Call::Send, 1);
  fake_.Capture(igmp, address_);
  Start();
  thread_.join();
  EXPECT_EQ(end_, CaptureEnd::ByOtherError);
}

}  // namespace
}  // namespace tunnel
