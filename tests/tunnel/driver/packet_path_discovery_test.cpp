#include <gtest/gtest.h>

#include <map>
#include <optional>
#include <utility>

#include "tunnel/driver/test_packet_path.h"
#include "tunnel/packets/test_packets.h"
#include "tunnel/packets/test_random.h"

// Broadcasts through the packet path: limited ones in discovery mode, and those addressed by a tool
// to one network.
namespace tunnel {
namespace {

constexpr std::uint16_t kAskingPort = 40000;
constexpr std::uint16_t kDevicePort = 34964;

// kScan from another source.
Packet ScanFrom(std::uint32_t source, std::uint16_t sourcePort,
                std::uint16_t destinationPort = kDevicePort) {
  Packet packet = PacketOf(kScan);
  SetSourceAddress(packet, source);
  WriteU16Be(packet, 20, sourcePort);
  WriteU16Be(packet, 22, destinationPort);
  return packet;
}

// kScanAnswer from another device or to another port.
Packet AnswerFrom(std::uint32_t device, std::uint16_t askingPort = kAskingPort,
                  std::uint16_t devicePort = kDevicePort) {
  Packet packet = PacketOf(kScanAnswer);
  SetSourceAddress(packet, device);
  WriteU16Be(packet, 20, devicePort);
  WriteU16Be(packet, 22, askingPort);
  return packet;
}

class PacketPathDiscovery : public PacketPathTest {
 protected:
  PacketPathDiscovery() { path_.Configure(kTunnelAddress, {kDirect, kNat}, true); }

  // The source address of a device's answer, as seen by the tool; 0 if it is dropped.
  std::uint32_t SeenFrom(std::uint32_t device, std::uint16_t askingPort = kAskingPort) {
    const Packets back = Inbound(AnswerFrom(device, askingPort));
    return back.empty() ? 0 : SourceAddress(back[0]);
  }
};

// ---- the question

TEST_F(PacketPathDiscovery, TurnsOneBroadcastIntoOneForEachNetwork) {
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

TEST_F(PacketPathDiscovery, AsksTheNetworksInTheOrderOfTheirMappings) {
  path_.Configure(kTunnelAddress, {kNat, kDirect}, true);
  const auto left = Outbound(PacketOf(kScan));
  ASSERT_EQ(left.size(), 2U);
  EXPECT_EQ(DestinationAddress(left[0]), 0xC0A801FFU);
  EXPECT_EQ(DestinationAddress(left[1]), 0x0A0000FFU);
}

TEST_F(PacketPathDiscovery, AsksTheLastAddressOfANetworkOfAnySize) {
  constexpr std::uint32_t kSite = 0x0A010203;  // 10.1.2.3
  struct {
    std::uint32_t prefix;
    std::optional<std::uint32_t> asked, seen;
  } const rows[] = {
      {0, 0xFFFFFFFF, 0xFFFFFFFF},  {8, 0x0AFFFFFF, 0xACFFFFFF},  {16, 0x0A01FFFF, 0xAC1FFFFF},
      {23, 0x0A0103FF, 0xAC1F01FF}, {25, 0x0A01027F, 0xAC1F007F}, {30, 0x0A010203, 0xAC1F0003},
      {31, std::nullopt, {}},       {32, std::nullopt, {}},
  };
  for (const auto& row : rows) {
    const std::uint32_t mask = MaskOf(row.prefix);
    path_.Configure(kTunnelAddress,
                    {{kSite & mask, row.prefix, 0xAC1F0000 & mask, row.prefix, true}}, true);
    const auto left = Outbound(PacketOf(kScan));
    EXPECT_EQ(left.size(), row.asked ? 1U : 0U) << row.prefix;
    EXPECT_EQ(path_.BroadcastCount(), row.asked ? 1U : 0U) << row.prefix;
    EXPECT_EQ(path_.FlowCount(), row.asked ? 1U : 0U) << row.prefix;
    if (!row.asked) continue;
    ASSERT_EQ(left.size(), 1U) << row.prefix;
    EXPECT_EQ(DestinationAddress(left[0]), *row.asked) << row.prefix;
    EXPECT_EQ(SeenFrom(0x0A010201), *row.seen) << row.prefix;
  }
}

TEST_F(PacketPathDiscovery, InjectsNothingIntoTheOwnNetwork) {
  EXPECT_EQ(Outbound(PacketOf(kScan)).size(), 2U);
  EXPECT_TRUE(fake_.SentPackets().empty());
}

TEST_F(PacketPathDiscovery, CutsABroadcastToItsTotalLength) {
  Packet scan = PacketOf(kScan);
  scan.resize(scan.size() + 40, std::byte{0xEE});
  const auto left = Outbound(scan);
  ASSERT_EQ(left.size(), 2U);
  EXPECT_EQ(left[0].size(), PacketOf(kScan).size());
  EXPECT_EQ(left[1], PacketOf(kScanAtSite));
}

TEST_F(PacketPathDiscovery, DropsLimitedBroadcastsWhenOff) {
  path_.Configure(kTunnelAddress, {kDirect, kNat}, false);
  EXPECT_TRUE(Outbound(PacketOf(kScan)).empty());
  EXPECT_EQ(path_.BroadcastCount(), 0U);
}

TEST_F(PacketPathDiscovery, TakesOnlyUdpBroadcasts) {
  EXPECT_TRUE(Outbound(WithDestination(PacketOf(kPing), kLimitedBroadcast)).empty());
  EXPECT_TRUE(Outbound(WithDestination(PacketOf(kSyn), kLimitedBroadcast)).empty());
  EXPECT_EQ(Outbound(PacketOf(kUdp)).size(), 1U);
}

TEST_F(PacketPathDiscovery, ReportsAFailingDriver) {
  fake_.FailNth(FakeDriver::Call::Checksums, 2);
  Packet scan = PacketOf(kScan);
  EXPECT_EQ(ErrorOf([&] { path_.HandleOutbound(scan, address_); }),
            "WinDivert checksum recalculation failed.");
  EXPECT_EQ(queue_.Size(), 1U);  // the first network's copy had left
  EXPECT_EQ(path_.FlowCount(), 1U);
  EXPECT_EQ(path_.BroadcastCount(), 1U);
}

// ---- the answer

TEST_F(PacketPathDiscovery, BringsADevicesAnswerFromTheMappedBroadcastAddress) {
  Outbound(PacketOf(kScan));
  EXPECT_EQ(Inbound(PacketOf(kScanAnswer)), Packets{PacketOf(kScanAnswerAtHome)});
  const auto sent = fake_.SentPackets();
  ASSERT_EQ(sent.size(), 1U);
  EXPECT_EQ(sent[0].address.timestamp, 0);
  EXPECT_EQ(sent[0].address.flags, 0U);
  EXPECT_EQ(sent[0].address.interfaceIndex, 12U);
  EXPECT_EQ(sent[0].address.subInterfaceIndex, 3U);
}

TEST_F(PacketPathDiscovery, LetsEveryDeviceAnswerAndMoreThanOnce) {
  Outbound(PacketOf(kScan));
  for (int round = 0; round < 2; ++round) {
    for (const std::uint32_t host : {1U, 77U, 254U}) {
      EXPECT_EQ(SeenFrom(0xC0A80100 + host), 0xAC1F00FFU) << host;
      EXPECT_EQ(SeenFrom(0x0A000000 + host), 0x0A0000FFU) << host;
    }
  }
}

TEST_F(PacketPathDiscovery, DropsAnswersFromElsewhere) {
  Outbound(PacketOf(kScan));
  EXPECT_TRUE(Inbound(AnswerFrom(0xC0A8014D, kAskingPort, kDevicePort + 1)).empty());
  EXPECT_TRUE(Inbound(AnswerFrom(0xC0A8014D, kAskingPort + 1)).empty());
  EXPECT_TRUE(Inbound(AnswerFrom(0xC0A8014D, kDevicePort, kAskingPort)).empty()) << "swapped";
  EXPECT_TRUE(Inbound(AnswerFrom(0xC0A8024D)).empty()) << "the network beside";
  for (const std::uint8_t protocol : {kProtocolTcp, kProtocolIcmp}) {
    Packet answer = AnswerFrom(0xC0A8014D);
    answer.resize(40);  // room for a TCP header
    WriteU16Be(answer, 2, 40);
    WriteU8(answer, 9, protocol);
    EXPECT_TRUE(Inbound(answer).empty()) << int{protocol};
  }
  EXPECT_EQ(SeenFrom(0xC0A8014D), 0xAC1F00FFU) << "the right one, after all these";
}

// The site decides which packets reach the relay; here only source and ports count.
TEST_F(PacketPathDiscovery, IgnoresAnAnswersDestination) {
  Outbound(PacketOf(kScan));
  for (const std::uint32_t destination : {0xC0A801FFU, 0xFFFFFFFFU}) {
    const auto back = Inbound(WithDestination(AnswerFrom(0xC0A8014D), destination));
    ASSERT_EQ(back.size(), 1U);
    EXPECT_EQ(DestinationAddress(back[0]), kComputer);
  }
}

TEST_F(PacketPathDiscovery, AnswersFromTheBroadcastAddressItselfAreTheFlows) {
  path_.Configure(kTunnelAddress, {kNat}, true);
  const auto left = Outbound(PacketOf(kScan));
  ASSERT_EQ(left.size(), 1U);
  const auto back = Inbound(AnswerTo(left[0]));
  ASSERT_EQ(back.size(), 1U);
  EXPECT_EQ(SourceAddress(back[0]), 0xAC1F00FFU);
  EXPECT_EQ(DestinationAddress(back[0]), kComputer);
}

TEST_F(PacketPathDiscovery, ADeviceThatWasAddressedItselfKeepsItsAddress) {
  Outbound(WithDestination(ScanFrom(kComputer, kAskingPort), 0xAC1F004D));
  Outbound(PacketOf(kScan));
  EXPECT_EQ(SeenFrom(0xC0A8014D), 0xAC1F004DU);
  EXPECT_EQ(SeenFrom(0xC0A8014E), 0xAC1F00FFU);
}

TEST_F(PacketPathDiscovery, ForgetsQuestionsWhenClearedOrReconfigured) {
  Outbound(PacketOf(kScan));
  path_.ClearFlows();
  EXPECT_EQ(SeenFrom(0xC0A8014D), 0U);
  Outbound(PacketOf(kScan));
  path_.Configure(kTunnelAddress, {kDirect, kNat}, true);
  EXPECT_EQ(SeenFrom(0xC0A8014D), 0U);
}

// ---- several askers

TEST_F(PacketPathDiscovery, GivesEachAskerOfOnePortItsOwnAnswers) {
  struct Asker {
    std::uint32_t address;
    std::uint16_t port;
  };
  const Asker askers[] = {{kComputer, 40001}, {0x0A090909, 40000}, {0x0B010101, 1}, {2, 65535}};
  std::uint32_t interfaceIndex = 20;
  for (const Asker& asker : askers) {
    address_.interfaceIndex = interfaceIndex++;
    EXPECT_EQ(Outbound(ScanFrom(asker.address, asker.port)).size(), 2U);
  }
  EXPECT_EQ(path_.BroadcastCount(), 8U);
  for (const std::uint32_t device : {0xC0A8014DU, 0x0A000009U}) {
    interfaceIndex = 20;
    for (const Asker& asker : askers) {
      const auto back = Inbound(AnswerFrom(device, asker.port));
      ASSERT_EQ(back.size(), 1U);
      EXPECT_EQ(DestinationAddress(back[0]), asker.address);
      EXPECT_EQ(fake_.SentPackets().back().address.interfaceIndex, interfaceIndex++);
    }
  }
}

TEST_F(PacketPathDiscovery, OneAskerMayAskForSeveralPorts) {
  Outbound(ScanFrom(kComputer, kAskingPort, 161));
  Outbound(ScanFrom(kComputer, kAskingPort, 47808));
  EXPECT_EQ(Inbound(AnswerFrom(0xC0A8014D, kAskingPort, 161)).size(), 1U);
  EXPECT_EQ(Inbound(AnswerFrom(0xC0A8014D, kAskingPort, 47808)).size(), 1U);
  EXPECT_TRUE(Inbound(AnswerFrom(0xC0A8014D, kAskingPort, 44818)).empty());
}

TEST_F(PacketPathDiscovery, TheLaterOfTwoAskersWithTheSamePortsIsAnswered) {
  Outbound(PacketOf(kScan));
  address_.interfaceIndex = 30;
  address_.subInterfaceIndex = 4;
  Outbound(ScanFrom(0x0A090909, kAskingPort));
  EXPECT_EQ(path_.BroadcastCount(), 2U);
  const auto back = Inbound(PacketOf(kScanAnswer));
  ASSERT_EQ(back.size(), 1U);
  EXPECT_EQ(DestinationAddress(back[0]), 0x0A090909U);
  EXPECT_EQ(fake_.SentPackets()[0].address.interfaceIndex, 30U);
  EXPECT_EQ(fake_.SentPackets()[0].address.subInterfaceIndex, 4U);
}

// ---- several networks with one device

constexpr RouteMapping kWide{0x0A000000, 16, 0x0A000000, 16, false};   // 10.0.0.0/16
constexpr RouteMapping kNarrow{0x0A000500, 24, 0xAC1F0000, 24, true};  // 10.0.5.0/24
constexpr RouteMapping kLowest{0x0A000000, 24, 0xAC1F0100, 24, true};  // 10.0.0.0/24
constexpr std::uint32_t kInWideAndNarrow = 0x0A000509;                 // 10.0.5.9
constexpr std::uint32_t kInWideAndLowest = 0x0A000009;                 // 10.0.0.9

TEST_F(PacketPathDiscovery, ADeviceOfSeveralNetworksAnswersForTheFirstInTableOrder) {
  for (const auto& mappings : {std::vector{kWide, kLowest, kNarrow}, {kNarrow, kLowest, kWide}}) {
    path_.Configure(kTunnelAddress, mappings, true);
    EXPECT_EQ(Outbound(PacketOf(kScan)).size(), 3U);
    EXPECT_EQ(SeenFrom(kInWideAndNarrow), 0x0A00FFFFU);
    EXPECT_EQ(SeenFrom(kInWideAndLowest), 0x0A00FFFFU);
  }
}

TEST_F(PacketPathDiscovery, ADeviceOfSeveralNetworksAnswersForTheOneThatWasAsked) {
  struct {
    const char* what;
    RouteMapping other;
    std::uint32_t device;
  } const rows[] = {{"inside the wide", kNarrow, kInWideAndNarrow},
                    {"beginning where the wide begins", kLowest, kInWideAndLowest}};
  for (const auto& row : rows) {
    path_.Configure(kTunnelAddress, {kWide, row.other}, true);
    const std::uint32_t broadcast = LastAddress(row.other.Mapped());
    Outbound(WithDestination(PacketOf(kScan), broadcast));
    EXPECT_EQ(SeenFrom(row.device), broadcast) << row.what;
    // The wide network is asked from another port; the answers must not be confused.
    Outbound(WithDestination(ScanFrom(kComputer, 40001), 0x0A00FFFF));
    EXPECT_EQ(SeenFrom(row.device, 40001), 0x0A00FFFFU) << row.what;
    EXPECT_EQ(SeenFrom(row.device), broadcast) << row.what;
  }
}

TEST_F(PacketPathDiscovery, ANetworkRoutedTwiceIsAskedTwiceAndAnswersForTheLater) {
  const RouteMapping again{kNat.realNetwork, 24, 0xAC1F0100, 24, true};
  path_.Configure(kTunnelAddress, {kNat, again}, true);
  const auto left = Outbound(PacketOf(kScan));
  EXPECT_EQ(left, (Packets{PacketOf(kScanAtSite), PacketOf(kScanAtSite)}));
  EXPECT_EQ(path_.FlowCount(), 1U);
  EXPECT_EQ(path_.BroadcastCount(), 1U);
  EXPECT_EQ(SeenFrom(0xC0A8014D), 0xAC1F01FFU);
}

TEST_F(PacketPathDiscovery, AnswersForTheFirstNetworkInTableOrderWhateverTheRoutes) {
  Random random(8);
  for (int round = 0; round < 500; ++round) {
    std::vector<Ipv4Network> routes(1 + random() % 5);
    for (Ipv4Network& route : routes) {
      route.prefix = 24 + random() % 9;
      route.network = (0x0A000000 + random() % 1024) & MaskOf(route.prefix);
    }
    const auto mappings = BuildRouteMappings(
        routes, std::span(routes).first(random() % (routes.size() + 1)));  // some collide
    path_.Configure(kTunnelAddress, mappings, true);
    Outbound(PacketOf(kScan));

    std::map<std::pair<std::uint32_t, std::uint32_t>, std::uint32_t> asked;
    for (const RouteMapping& mapping : mappings) {
      if (mapping.realPrefix > 30) continue;
      asked[{mapping.realNetwork, mapping.realPrefix}] =
          mapping.mappedNetwork | ~MaskOf(mapping.mappedPrefix);
    }
    for (int turn = 0; turn < 20; ++turn) {
      const std::uint32_t device = 0x0A000000 + random() % 1024;
      std::uint32_t expected = 0;
      for (const auto& [network, seen] : asked) {
        const bool isInside = (device & MaskOf(network.second)) == network.first;
        if (isInside && expected == 0) expected = seen;
      }
      const bool isABroadcastAddress = (device & 3) == 3;  // such a source may have a flow
      if (!isABroadcastAddress) {
        ASSERT_EQ(SeenFrom(device), expected) << round;
      }
    }
  }
}

// ---- broadcasts addressed to one network

TEST_F(PacketPathDiscovery, LetsAnyHostAnswerADirectedBroadcastInEitherMode) {
  for (const bool discoveryMode : {false, true}) {
    path_.Configure(kTunnelAddress, {kDirect, kNat}, discoveryMode);
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
}

// 10.0.0.63 is the last address of 10.0.0.0/26, but the address alone does not show it.
TEST_F(PacketPathDiscovery, RecognisesADirectedBroadcastOnlyByItsLastOctet) {
  path_.Configure(kTunnelAddress, {{0x0A000000, 26, 0x0A000000, 26, false}}, true);
  Outbound(WithDestination(PacketOf(kScan), 0x0A00003F));
  EXPECT_EQ(path_.BroadcastCount(), 0U);
  EXPECT_EQ(SeenFrom(0x0A000009), 0U);
  Outbound(PacketOf(kScan));  // asked through discovery mode, the same network answers
  EXPECT_EQ(SeenFrom(0x0A000009), 0x0A00003FU);
}

// The address on site counts: the halves of a /24 may be mapped in the other order.
TEST_F(PacketPathDiscovery, RecognisesADirectedBroadcastByItsAddressOnSite) {
  path_.Configure(kTunnelAddress,
                  {{0xC0A80100, 25, 0xAC1F0080, 25, true}, {0xC0A80180, 25, 0xAC1F0000, 25, true}},
                  true);
  Outbound(WithDestination(PacketOf(kUdp), 0xAC1F00FF));  // 192.168.1.127
  EXPECT_EQ(path_.BroadcastCount(), 0U);
  Outbound(WithDestination(PacketOf(kUdp), 0xAC1F007F));  // 192.168.1.255
  EXPECT_EQ(path_.BroadcastCount(), 1U);
}

TEST_F(PacketPathDiscovery, RecordsBroadcastsOfUdpOnly) {
  Outbound(WithDestination(PacketOf(kPing), 0xAC1F00FF));
  Outbound(WithDestination(PacketOf(kSyn), 0xAC1F00FF));
  EXPECT_EQ(path_.BroadcastCount(), 0U);
  EXPECT_EQ(path_.FlowCount(), 2U);
}

TEST_F(PacketPathDiscovery, RecordsALimitedBroadcastThatADefaultRouteMatches) {
  for (const bool discoveryMode : {false, true}) {
    path_.Configure(kTunnelAddress, {{0, 0, 0, 0, false}}, discoveryMode);
    const auto left = Outbound(PacketOf(kScan));
    ASSERT_EQ(left.size(), 1U);
    EXPECT_EQ(DestinationAddress(left[0]), kLimitedBroadcast);
    EXPECT_EQ(path_.BroadcastCount(), 1U);
    EXPECT_EQ(SeenFrom(0xC0A8014D), kLimitedBroadcast);
  }
}

}  // namespace
}  // namespace tunnel
