#include "tunnel/driver/packet_path.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <thread>

#include "tunnel/driver/test_packet_path.h"
#include "tunnel/packets/bytes.h"
#include "tunnel/packets/test_packets.h"
#include "tunnel/packets/test_random.h"

namespace tunnel {
namespace {

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

TEST_F(PacketPathTest, InjectsOnTheInterfaceOfTheRequest) {
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

TEST_F(PacketPathTest, UsesTheMappedNetworksOfNestedRoutes) {
  path_.Configure(kTunnelAddress,
                  {{0x0A000000, 16, 0x0A000000, 16, false}, {0x0A000500, 24, 0xAC1F0000, 24, true}},
                  false);
  const auto underTheWide = Outbound(WithDestination(PacketOf(kUdp), 0x0A000501));
  ASSERT_EQ(underTheWide.size(), 1U);
  EXPECT_EQ(DestinationAddress(underTheWide[0]), 0x0A000501U);
  const auto underTheNarrow = Outbound(WithDestination(PacketOf(kUdp), 0xAC1F0001));
  ASSERT_EQ(underTheNarrow.size(), 1U);
  EXPECT_EQ(DestinationAddress(underTheNarrow[0]), 0x0A000501U);
  // Both use one host and one port, so answers belong to the later flow.
  EXPECT_EQ(path_.FlowCount(), 1U);
  const auto back = Inbound(AnswerTo(underTheNarrow[0]));
  ASSERT_EQ(back.size(), 1U);
  EXPECT_EQ(SourceAddress(back[0]), 0xAC1F0001U);
}

TEST_F(PacketPathTest, DropsPacketsWithoutARoute) {
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

TEST_F(PacketPathTest, ForgetsFlowsWhenClearedOrReconfigured) {
  Outbound(PacketOf(kUdp));
  path_.ClearFlows();
  EXPECT_TRUE(Inbound(PacketOf(kUdpReply)).empty());
  Outbound(PacketOf(kUdp));
  path_.Configure(kTunnelAddress, {kNat}, false);
  EXPECT_EQ(path_.FlowCount(), 0U);
}

TEST_F(PacketPathTest, RestoresTheOriginalAddressesForAnyPacketAndRoutes) {
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
    while (!isDone) {
      Packet packet = PacketOf(kUdp);
      path_.HandleOutbound(packet, address_);
    }
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
