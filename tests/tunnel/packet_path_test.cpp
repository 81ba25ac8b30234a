#include "tunnel/packet_path.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <thread>

#include "tunnel/bytes.h"
#include "tunnel/fake_driver.h"
#include "tunnel/test_packets.h"
#include "tunnel/test_random.h"

namespace tunnel {
namespace {

constexpr std::uint32_t kComputer = 0xC0A80132;       // 192.168.1.50
constexpr std::uint32_t kTunnelAddress = 0x0A630007;  // 10.99.0.7
constexpr RouteMapping kDirect{0x0A000000, 24, 0x0A000000, 24, false};
constexpr RouteMapping kNat{0xC0A80100, 24, 0xAC1F0000, 24, true};

template <typename Action>
std::string ErrorOf(Action action) {
  try {
    action();
  } catch (const std::runtime_error& error) {
    return error.what();
  }
  return "no error";
}

Packet WithDestination(Packet packet, std::uint32_t destination) {
  SetDestinationAddress(packet, destination);
  return packet;
}

// The answer to a packet as the site sees it: addresses and ports swapped. Checksums are left.
Packet AnswerTo(Packet packet) {
  const auto layout = ValidatePacket(packet);
  const std::uint32_t source = SourceAddress(packet);
  SetSourceAddress(packet, DestinationAddress(packet));
  SetDestinationAddress(packet, source);
  if (layout && layout->protocol != kProtocolIcmp) {
    const std::uint16_t sourcePort = ReadU16Be(packet, layout->transportOffset);
    WriteU16Be(packet, layout->transportOffset, ReadU16Be(packet, layout->transportOffset + 2));
    WriteU16Be(packet, layout->transportOffset + 2, sourcePort);
  }
  return packet;
}

class PacketPathTest : public ::testing::Test {
 protected:
  PacketPathTest() {
    address_.timestamp = 99;
    address_.flags = 0x00E20000;
    address_.interfaceIndex = 12;
    address_.subInterfaceIndex = 3;
    driver_.Load(fake_.Api());
    driver_.OpenCapture(L"true");
    driver_.OpenInject();
    queue_.Start();
    path_.Configure(kTunnelAddress, {kDirect, kNat}, false);
  }
  ~PacketPathTest() override {
    driver_.Unload();
    EXPECT_EQ(fake_.Misuses(), std::vector<std::string>{});
  }

  // What leaves for the relay when this is captured.
  std::vector<Packet> Outbound(const Packet& packet) {
    path_.HandleOutbound(packet, address_);
    std::vector<Packet> packets;
    while (queue_.Size() > 0) packets.push_back(*queue_.Take());
    return packets;
  }

  // What is injected when this comes from the relay.
  std::vector<Packet> Inbound(Packet packet) {
    const std::size_t before = fake_.SentPackets().size();
    path_.HandleInbound(packet);
    std::vector<Packet> packets;
    const auto sent = fake_.SentPackets();
    for (std::size_t index = before; index < sent.size(); ++index) {
      packets.push_back(sent[index].packet);
    }
    return packets;
  }

  FakeDriver fake_;
  Driver driver_;
  PacketQueue queue_;
  PacketPath path_{driver_, queue_};
  WinDivertAddress address_;
};

using Packets = std::vector<Packet>;

TEST_F(PacketPathTest, CarriesEachProtocolThereAndBackUnderNat) {
  struct {
    const char* what;
    Packet captured, atSite, reply, atHome;
  } const rows[] = {
      {"ICMP", PacketOf(kPing), PacketOf(kPingAtSite), PacketOf(kPingReply),
       PacketOf(kPingReplyAtHome)},
      {"TCP", PacketOf(kSyn), PacketOf(kSynAtSite), PacketOf(kSynAck), PacketOf(kSynAckAtHome)},
      {"UDP", PacketOf(kUdp), PacketOf(kUdpAtSite), PacketOf(kUdpReply), PacketOf(kUdpReplyAtHome)},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(Outbound(row.captured), Packets{row.atSite}) << row.what;
    EXPECT_EQ(Inbound(row.reply), Packets{row.atHome}) << row.what;
  }
  EXPECT_EQ(path_.FlowCount(), 3U);
}

TEST_F(PacketPathTest, InjectsOnTheInterfaceThatTheRequestLeftBy) {
  Outbound(PacketOf(kUdp));
  Inbound(PacketOf(kUdpReply));
  const auto sent = fake_.SentPackets();
  ASSERT_EQ(sent.size(), 1U);
  EXPECT_EQ(sent[0].address.timestamp, 0);
  EXPECT_EQ(sent[0].address.flags, 0U);
  EXPECT_EQ(sent[0].address.reserved, 0U);
  EXPECT_EQ(sent[0].address.interfaceIndex, 12U);
  EXPECT_EQ(sent[0].address.subInterfaceIndex, 3U);
  for (const std::uint8_t byte : sent[0].address.rest) EXPECT_EQ(byte, 0);
}

TEST_F(PacketPathTest, KeepsTheDestinationOnADirectRoute) {
  const auto left = Outbound(WithDestination(PacketOf(kUdp), 0x0A000009));
  ASSERT_EQ(left.size(), 1U);
  EXPECT_EQ(DestinationAddress(left[0]), 0x0A000009U);
  EXPECT_EQ(SourceAddress(left[0]), kTunnelAddress);
  EXPECT_TRUE(HasCorrectChecksums(left[0]));
  const auto back = Inbound(AnswerTo(left[0]));
  ASSERT_EQ(back.size(), 1U);
  EXPECT_EQ(SourceAddress(back[0]), 0x0A000009U);
  EXPECT_EQ(DestinationAddress(back[0]), kComputer);
  EXPECT_TRUE(HasCorrectChecksums(back[0]));
}

TEST_F(PacketPathTest, GoesByTheMappedNetworksOfNestedRoutes) {
  path_.Configure(kTunnelAddress,
                  {{0x0A000000, 16, 0x0A000000, 16, false}, {0x0A000500, 24, 0xAC1F0000, 24, true}},
                  false);
  const auto underTheWide = Outbound(WithDestination(PacketOf(kUdp), 0x0A000501));
  ASSERT_EQ(underTheWide.size(), 1U);
  EXPECT_EQ(DestinationAddress(underTheWide[0]), 0x0A000501U);
  const auto underTheNarrow = Outbound(WithDestination(PacketOf(kUdp), 0xAC1F0001));
  ASSERT_EQ(underTheNarrow.size(), 1U);
  EXPECT_EQ(DestinationAddress(underTheNarrow[0]), 0x0A000501U);
  // Both speak with one host from one port: the later flow is the one that is answered.
  EXPECT_EQ(path_.FlowCount(), 1U);
  const auto back = Inbound(AnswerTo(underTheNarrow[0]));
  ASSERT_EQ(back.size(), 1U);
  EXPECT_EQ(SourceAddress(back[0]), 0xAC1F0001U);
}

TEST_F(PacketPathTest, DropsWhatNoRouteTakes) {
  EXPECT_TRUE(Outbound(WithDestination(PacketOf(kUdp), 0x08080808)).empty());
  EXPECT_TRUE(fake_.SentPackets().empty());
  EXPECT_EQ(path_.FlowCount(), 0U);
}

TEST_F(PacketPathTest, CutsAPacketToItsTotalLength) {
  Packet packet = PacketOf(kUdp);
  packet.resize(packet.size() + 40, std::byte{0xEE});
  EXPECT_EQ(Outbound(packet), Packets{PacketOf(kUdpAtSite)});
  Packet reply = PacketOf(kUdpReply);
  reply.resize(reply.size() + 40, std::byte{0xEE});
  EXPECT_EQ(Inbound(reply), Packets{PacketOf(kUdpReplyAtHome)});
}

TEST_F(PacketPathTest, DropsAReplyToAFlowNeverSeen) {
  EXPECT_TRUE(Inbound(PacketOf(kUdpReply)).empty());
  EXPECT_TRUE(Inbound(PacketOf(kSynAck)).empty());
  EXPECT_TRUE(Inbound(PacketOf(kPingReply)).empty());
}

TEST_F(PacketPathTest, DropsAReplyThatDiffersFromTheFlowInAnyPart) {
  Outbound(PacketOf(kUdp));
  for (const std::size_t offset : {12U, 15U, 16U, 19U, 20U, 21U, 22U, 23U}) {
    Packet reply = PacketOf(kUdpReply);
    WriteU8(reply, offset, ReadU8(reply, offset) ^ 1);
    EXPECT_TRUE(Inbound(reply).empty()) << offset;
  }
  Packet ping = PacketOf(kPingReply);
  Outbound(PacketOf(kPing));
  WriteU16Be(ping, 24, 0x1235);
  EXPECT_TRUE(Inbound(ping).empty());
}

TEST_F(PacketPathTest, DropsEveryTruncationAndAnyNoiseFromTheRelay) {
  Outbound(PacketOf(kPing));
  Outbound(PacketOf(kSyn));
  Outbound(PacketOf(kUdp));
  for (const Packet& whole : {PacketOf(kPingReply), PacketOf(kSynAck), PacketOf(kUdpReply)}) {
    for (std::size_t length = 0; length < whole.size(); ++length) {
      const Packet cut(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(length));
      EXPECT_TRUE(Inbound(cut).empty()) << length;
      EXPECT_TRUE(Outbound(cut).empty()) << length;
    }
  }
  Random random(6);
  for (int round = 0; round < 5000; ++round) {
    Packet noise(random() % 64);
    for (std::byte& byte : noise) byte = static_cast<std::byte>(random());
    if (!noise.empty()) noise[0] = std::byte{0x45};
    EXPECT_TRUE(Inbound(noise).empty());
  }
}

TEST_F(PacketPathTest, SkipsInboundPacketsWithoutAnOpenDriver) {
  Outbound(PacketOf(kUdp));
  driver_.CloseHandles();
  EXPECT_TRUE(Inbound(PacketOf(kUdpReply)).empty());
  driver_.Unload();
  EXPECT_TRUE(Inbound(PacketOf(kUdpReply)).empty());
}

TEST_F(PacketPathTest, ReportsAFailingDriver) {
  fake_.FailNth(FakeDriver::Call::Checksums, 1);
  EXPECT_EQ(ErrorOf([&] { Outbound(PacketOf(kUdp)); }), "WinDivert checksum recalculation failed.");
  EXPECT_EQ(queue_.Size(), 0U);
  EXPECT_EQ(path_.FlowCount(), 0U);

  Outbound(PacketOf(kUdp));
  fake_.FailNth(FakeDriver::Call::Checksums, 1);
  EXPECT_EQ(ErrorOf([&] { Inbound(PacketOf(kUdpReply)); }),
            "WinDivert checksum recalculation failed.");
  fake_.FailNth(FakeDriver::Call::Send, 1);
  EXPECT_EQ(ErrorOf([&] { Inbound(PacketOf(kUdpReply)); }), "WinDivertSend failed.");
  EXPECT_EQ(Inbound(PacketOf(kUdpReply)), Packets{PacketOf(kUdpReplyAtHome)});
}

TEST_F(PacketPathTest, ReportsAFailingDriverOnABroadcast) {
  path_.Configure(kTunnelAddress, {kDirect, kNat}, true);
  fake_.FailNth(FakeDriver::Call::Checksums, 2);
  EXPECT_EQ(ErrorOf([&] { path_.HandleOutbound(PacketOf(kScan), address_); }),
            "WinDivert checksum recalculation failed.");
  EXPECT_EQ(queue_.Size(), 1U);  // the first network's copy had left
}

TEST_F(PacketPathTest, TurnsOneBroadcastIntoOneForEachNetwork) {
  const RouteMapping host{0x0B000001, 32, 0x0B000001, 32, false};
  const RouteMapping pair{0x0B000002, 31, 0x0B000002, 31, false};
  path_.Configure(kTunnelAddress, {kDirect, host, pair, kNat}, true);
  const auto left = Outbound(PacketOf(kScan));
  ASSERT_EQ(left.size(), 2U);
  EXPECT_EQ(DestinationAddress(left[0]), 0x0A0000FFU);
  EXPECT_EQ(SourceAddress(left[0]), kTunnelAddress);
  EXPECT_TRUE(HasCorrectChecksums(left[0]));
  EXPECT_EQ(left[1], PacketOf(kScanAtSite));
  EXPECT_EQ(path_.FlowCount(), 2U);
  EXPECT_EQ(path_.BroadcastCount(), 2U);
}

TEST_F(PacketPathTest, BringsADevicesAnswerFromTheMappedBroadcastAddress) {
  path_.Configure(kTunnelAddress, {kDirect, kNat}, true);
  Outbound(PacketOf(kScan));
  EXPECT_EQ(Inbound(PacketOf(kScanAnswer)), Packets{PacketOf(kScanAnswerAtHome)});
  EXPECT_EQ(fake_.SentPackets()[0].address.interfaceIndex, 12U);

  Packet wrongPort = PacketOf(kScanAnswer);
  WriteU16Be(wrongPort, 20, 34965);
  EXPECT_TRUE(Inbound(wrongPort).empty());
  Packet wrongNetwork = PacketOf(kScanAnswer);
  SetSourceAddress(wrongNetwork, 0xC0A8024D);
  EXPECT_TRUE(Inbound(wrongNetwork).empty());
}

TEST_F(PacketPathTest, AnswersFromTheBroadcastAddressItselfAreTheFlows) {
  path_.Configure(kTunnelAddress, {kNat}, true);
  const auto left = Outbound(PacketOf(kScan));
  ASSERT_EQ(left.size(), 1U);
  const auto back = Inbound(AnswerTo(left[0]));
  ASSERT_EQ(back.size(), 1U);
  EXPECT_EQ(SourceAddress(back[0]), 0xAC1F00FFU);
  EXPECT_EQ(DestinationAddress(back[0]), kComputer);
}

TEST_F(PacketPathTest, DropsLimitedBroadcastsOutsideDiscovery) {
  EXPECT_TRUE(Outbound(PacketOf(kScan)).empty());
}

TEST_F(PacketPathTest, DiscoveryTakesOnlyUdpBroadcasts) {
  path_.Configure(kTunnelAddress, {kDirect, kNat}, true);
  EXPECT_TRUE(Outbound(WithDestination(PacketOf(kPing), kLimitedBroadcast)).empty());
  EXPECT_TRUE(Outbound(WithDestination(PacketOf(kSyn), kLimitedBroadcast)).empty());
  EXPECT_EQ(Outbound(PacketOf(kUdp)).size(), 1U);
}

TEST_F(PacketPathTest, LetsAnyHostAnswerADirectedBroadcast) {
  const auto left = Outbound(WithDestination(PacketOf(kUdp), 0xAC1F00FF));
  ASSERT_EQ(left.size(), 1U);
  EXPECT_EQ(DestinationAddress(left[0]), 0xC0A801FFU);
  EXPECT_EQ(path_.BroadcastCount(), 1U);
  Packet answer = AnswerTo(left[0]);
  SetSourceAddress(answer, 0xC0A8014D);
  const auto back = Inbound(answer);
  ASSERT_EQ(back.size(), 1U);
  EXPECT_EQ(SourceAddress(back[0]), 0xAC1F00FFU);
  EXPECT_TRUE(HasCorrectChecksums(back[0]));
}

TEST_F(PacketPathTest, RecordsBroadcastsOfUdpOnly) {
  Outbound(WithDestination(PacketOf(kPing), 0xAC1F00FF));
  Outbound(WithDestination(PacketOf(kSyn), 0xAC1F00FF));
  EXPECT_EQ(path_.BroadcastCount(), 0U);
  EXPECT_EQ(path_.FlowCount(), 2U);
}

TEST_F(PacketPathTest, RecordsALimitedBroadcastThatARouteOfEverythingTakes) {
  path_.Configure(kTunnelAddress, {{0, 0, 0, 0, false}}, false);
  const auto left = Outbound(PacketOf(kScan));
  ASSERT_EQ(left.size(), 1U);
  EXPECT_EQ(DestinationAddress(left[0]), kLimitedBroadcast);
  EXPECT_EQ(path_.BroadcastCount(), 1U);
  EXPECT_EQ(Inbound(PacketOf(kScanAnswer)).size(), 1U);
}

TEST_F(PacketPathTest, ForgetsFlowsWhenClearedOrConfiguredAnew) {
  Outbound(PacketOf(kUdp));
  path_.ClearFlows();
  EXPECT_TRUE(Inbound(PacketOf(kUdpReply)).empty());
  Outbound(PacketOf(kUdp));
  path_.Configure(kTunnelAddress, {kNat}, false);
  EXPECT_EQ(path_.FlowCount(), 0U);
}

TEST_F(PacketPathTest, BringsBackWhatTheProgramUsedForAnyPacketAndRoutes) {
  Random random(7);
  for (int round = 0; round < 2000; ++round) {
    const std::uint32_t prefix = 16 + random() % 17;
    const auto site = random() & MaskOf(prefix);
    const Ipv4Network local{site, prefix};
    const bool collides = random() % 2 == 0;
    path_.Configure(
        kTunnelAddress,
        BuildRouteMappings(std::vector{local}, std::span(&local, collides ? std::size_t{1} : 0)),
        false);
    const std::uint32_t mapped = collides ? 0xAC1F0000 : site;
    const std::uint32_t host = random() & ~MaskOf(prefix);
    const std::uint8_t protocols[] = {kProtocolIcmp, kProtocolTcp, kProtocolUdp};
    Packet packet = PacketOf(kSyn);
    WriteU8(packet, 9, protocols[random() % 3]);
    for (std::size_t at = 20; at < packet.size(); ++at) {
      packet[at] = static_cast<std::byte>(random());
    }
    SetDestinationAddress(packet, mapped | host);

    const auto left = Outbound(packet);
    ASSERT_EQ(left.size(), 1U);
    ASSERT_EQ(DestinationAddress(left[0]), site | host);
    ASSERT_EQ(SourceAddress(left[0]), kTunnelAddress);
    ASSERT_TRUE(HasCorrectChecksums(left[0]));
    const auto back = Inbound(AnswerTo(left[0]));
    ASSERT_EQ(back.size(), 1U);
    ASSERT_EQ(SourceAddress(back[0]), mapped | host);
    ASSERT_EQ(DestinationAddress(back[0]), kComputer);
    ASSERT_TRUE(HasCorrectChecksums(back[0]));
  }
}

TEST_F(PacketPathTest, BothDirectionsMayRunWhileTheDriverIsClosed) {
  Outbound(PacketOf(kUdp));
  std::atomic<bool> isDone{false};
  std::jthread outbound([&] {
    while (!isDone) path_.HandleOutbound(PacketOf(kUdp), address_);
  });
  std::vector<std::jthread> inbound;
  for (int index = 0; index < 2; ++index) {
    inbound.emplace_back([&] {
      while (!isDone) {
        Packet reply = PacketOf(kUdpReply);
        try {
          path_.HandleInbound(reply);
        } catch (const std::runtime_error& error) {
          EXPECT_STREQ(error.what(), "WinDivertSend failed.");
        }
      }
    });
  }
  EXPECT_TRUE(fake_.WaitForSent(100));
  driver_.CloseHandles();
  path_.ClearFlows();
  isDone = true;
}

}  // namespace
}  // namespace tunnel
