#include "tunnel/packets/packet.h"

#include <gtest/gtest.h>

#include "tunnel/packets/bytes.h"
#include "tunnel/packets/test_packets.h"
#include "tunnel/packets/test_random.h"

namespace tunnel {
namespace {

// A packet of 20 header bytes and `transport`; the rest is zero.
Packet PacketWith(std::uint8_t protocol, std::initializer_list<std::uint8_t> transport) {
  Packet packet(20 + transport.size());
  WriteU8(packet, 0, 0x45);
  WriteU16Be(packet, 2, static_cast<std::uint16_t>(packet.size()));
  WriteU8(packet, 9, protocol);
  std::size_t at = 20;
  for (const std::uint8_t byte : transport) WriteU8(packet, at++, byte);
  return packet;
}

// A TCP segment, by default a SYN, with these options, padded to words.
Packet Segment(std::initializer_list<std::uint8_t> options, std::uint8_t flags = 0x02) {
  std::vector<std::uint8_t> padded(options);
  while (padded.size() % 4 != 0) padded.push_back(0);
  Packet packet(40 + padded.size());
  WriteU8(packet, 0, 0x45);
  WriteU16Be(packet, 2, static_cast<std::uint16_t>(packet.size()));
  WriteU8(packet, 9, kProtocolTcp);
  WriteU8(packet, 32, static_cast<std::uint8_t>((20 + padded.size()) / 4 << 4));
  WriteU8(packet, 33, flags);
  for (std::size_t index = 0; index < padded.size(); ++index) {
    WriteU8(packet, 40 + index, padded[index]);
  }
  return packet;
}

Packet Clamped(Packet packet) {
  const auto view = ValidatePacket(packet);
  EXPECT_TRUE(view);
  if (view) view->ClampMss();
  return packet;
}

TEST(ValidatePacket, FindsTheLayout) {
  Packet packet = PacketOf(kSyn);
  const auto view = ValidatePacket(packet);
  ASSERT_TRUE(view);
  const PacketLayout* const layout = &view->Layout();
  EXPECT_EQ(layout->totalLength, 44U);
  EXPECT_EQ(layout->headerLength, 20U);
  EXPECT_EQ(layout->transportOffset, 20U);
  EXPECT_EQ(layout->transportMinimum, 20U);
  EXPECT_EQ(layout->protocol, kProtocolTcp);
}

TEST(ValidatePacket, CountsIpOptionsToTheHeader) {
  Packet packet = PacketOf(kUdp);
  packet.insert(packet.begin() + 20, 8, std::byte{0});
  WriteU8(packet, 0, 0x47);
  WriteU16Be(packet, 2, static_cast<std::uint16_t>(packet.size()));
  const auto view = ValidatePacket(packet);
  ASSERT_TRUE(view);
  EXPECT_EQ(view->Layout().transportOffset, 28U);
  EXPECT_EQ(view->SourcePort(), 40000);
  EXPECT_EQ(view->DestinationPort(), 161);
}

TEST(ValidatePacket, RefusesEveryTruncation) {
  for (Packet whole : {PacketOf(kPing), PacketOf(kSyn), PacketOf(kUdp)}) {
    EXPECT_TRUE(ValidatePacket(whole));
    for (std::size_t length = 0; length < whole.size(); ++length) {
      Packet cut(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(length));
      EXPECT_FALSE(ValidatePacket(cut)) << length;
    }
  }
}

TEST(ValidatePacket, AcceptsBytesAfterTheTotalLength) {
  Packet packet = PacketOf(kUdp);
  packet.resize(packet.size() + 9);
  const auto view = ValidatePacket(packet);
  ASSERT_TRUE(view);
  EXPECT_EQ(view->Layout().totalLength, 33U);
}

TEST(ValidatePacket, RefusesOtherPackets) {
  struct {
    const char* what;
    std::size_t offset;
    std::uint16_t value;
  } const rows[] = {
      {"version 6", 0, 0x6500},
      {"version 0", 0, 0x0500},
      {"header of 16 bytes", 0, 0x4400},
      {"header of 0 bytes", 0, 0x4000},
      {"header of 60 bytes, more than there are", 0, 0x4F00},
      {"total length 0", 2, 0},
      {"total length below the header's", 2, 19},
      {"total length without a whole UDP header", 2, 27},
      {"total length over the captured", 2, 34},
      {"total length of 65535", 2, 0xFFFF},
      {"IGMP", 8, 0x8002},
      {"protocol 0", 8, 0x8000},
      {"ESP", 8, 0x8032},
  };
  for (const auto& row : rows) {
    Packet packet = PacketOf(kUdp);
    WriteU16Be(packet, row.offset, row.value);
    EXPECT_FALSE(ValidatePacket(packet)) << row.what;
  }
}

TEST(ValidatePacket, NeedsAWholeTransportHeader) {
  struct {
    std::uint8_t protocol;
    std::size_t minimum;
  } const rows[] = {{kProtocolIcmp, 8}, {kProtocolTcp, 20}, {kProtocolUdp, 8}};
  for (const auto& row : rows) {
    Packet packet = PacketWith(row.protocol, {});
    for (std::size_t length = 20; length <= 20 + row.minimum; ++length) {
      packet.resize(length);
      WriteU16Be(packet, 2, static_cast<std::uint16_t>(length));
      EXPECT_EQ(ValidatePacket(packet).has_value(), length == 20 + row.minimum)
          << int{row.protocol} << " " << length;
    }
  }
}

TEST(Packet, ReadsAndWritesAddresses) {
  Packet packet = PacketOf(kUdp);
  const auto view = ValidatePacket(packet);
  ASSERT_TRUE(view);
  EXPECT_EQ(view->SourceAddress(), 0xC0A80132U);
  EXPECT_EQ(view->DestinationAddress(), 0xAC1F0014U);
  view->SetSourceAddress(0x01020304);
  view->SetDestinationAddress(0xFFFEFDFC);
  EXPECT_EQ(view->SourceAddress(), 0x01020304U);
  EXPECT_EQ(view->DestinationAddress(), 0xFFFEFDFCU);
}

TEST(Packet, IcmpUsesItsIdentifierAsThePort) {
  Packet packet = PacketOf(kPing);
  const auto view = ValidatePacket(packet);
  ASSERT_TRUE(view);
  EXPECT_EQ(view->SourcePort(), 0x1234);
  EXPECT_EQ(view->DestinationPort(), 0);
  EXPECT_EQ(view->IcmpIdentifier(), 0x1234);
}

TEST(Packet, AFirstFragmentHasOffsetZeroAndMoreFragments) {
  struct Row {
    std::uint16_t field;  // flags and offset
    bool isFirst;
  };
  for (const Row& row : {Row{0x2000, true}, Row{0x6000, true}, Row{0xE000, true},
                         Row{0x0000, false}, Row{0x4000, false}, Row{0x0001, false},
                         Row{0x2001, false}, Row{0x3000, false}, Row{0x1FFF, false}}) {
    Packet packet = PacketOf(kUdp);
    WriteU16Be(packet, 6, row.field);
    EXPECT_EQ(IsFirstFragment(packet), row.isFirst) << row.field;
  }
}

TEST(ClampMss, LowersOnlyASynsMssAbove1310) {
  struct {
    const char* what;
    Packet before, after;
  } const rows[] = {
      {"1460", Segment({2, 4, 5, 0xB4}), Segment({2, 4, 5, 0x1E})},
      {"65535", Segment({2, 4, 0xFF, 0xFF}), Segment({2, 4, 5, 0x1E})},
      {"1311", Segment({2, 4, 5, 0x1F}), Segment({2, 4, 5, 0x1E})},
      {"1310", Segment({2, 4, 5, 0x1E}), Segment({2, 4, 5, 0x1E})},
      {"1200", Segment({2, 4, 4, 0xB0}), Segment({2, 4, 4, 0xB0})},
      {"SYN and ACK", Segment({2, 4, 5, 0xB4}, 0x12), Segment({2, 4, 5, 0x1E}, 0x12)},
      {"no options", Segment({}), Segment({})},
      {"ACK alone", Segment({2, 4, 5, 0xB4}, 0x10), Segment({2, 4, 5, 0xB4}, 0x10)},
      {"no MSS among the options", Segment({1, 3, 3, 8, 4, 2}), Segment({1, 3, 3, 8, 4, 2})},
      {"after others", Segment({1, 1, 4, 2, 2, 4, 5, 0xB4}), Segment({1, 1, 4, 2, 2, 4, 5, 0x1E})},
      {"after the end of the options", Segment({0, 2, 4, 5, 0xB4}), Segment({0, 2, 4, 5, 0xB4})},
      {"only the first", Segment({2, 4, 4, 0xB0, 2, 4, 5, 0xB4}),
       Segment({2, 4, 4, 0xB0, 2, 4, 5, 0xB4})},
      {"an MSS of another length is passed over", Segment({2, 3, 9, 2, 4, 5, 0xB4}),
       Segment({2, 3, 9, 2, 4, 5, 0x1E})},
      {"length 0 ends the walk", Segment({3, 0, 2, 4, 5, 0xB4}), Segment({3, 0, 2, 4, 5, 0xB4})},
      {"length 1 ends the walk", Segment({3, 1, 2, 4, 5, 0xB4}), Segment({3, 1, 2, 4, 5, 0xB4})},
      {"kind without length", Segment({1, 1, 1, 2}), Segment({1, 1, 1, 2})},
      {"length byte without a value", Segment({1, 1, 2, 4}), Segment({1, 1, 2, 4})},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(Clamped(row.before), row.after) << row.what;
  }
}

TEST(ClampMss, EndsAtAnOptionThatReachesPastTheHeader) {
  const Packet packet = Segment({3, 9, 2, 4, 5, 0xB4, 1, 1});
  EXPECT_EQ(Clamped(packet), packet);
}

TEST(ClampMss, NeverReadsTheDataAsOptions) {
  Packet packet = Segment({1, 1, 3, 3});  // the last option is cut off by the end of the header
  for (const int byte : {0, 2, 4, 5, 0xB4}) packet.push_back(static_cast<std::byte>(byte));
  WriteU16Be(packet, 2, static_cast<std::uint16_t>(packet.size()));
  EXPECT_EQ(Clamped(packet), packet);
}

TEST(ClampMss, IgnoresAnImpossibleDataOffset) {
  for (const int words : {0, 4, 7, 15}) {
    Packet packet = Segment({2, 4, 5, 0xB4});  // 24 header bytes: 6 words
    WriteU8(packet, 32, static_cast<std::uint8_t>(words << 4));
    EXPECT_EQ(Clamped(packet), packet) << words;
  }
}

TEST(ClampMss, LeavesOtherProtocolsAlone) {
  const Packet udp = PacketOf(kUdp);
  EXPECT_EQ(Clamped(udp), udp);
}

TEST(ClampMss, StaysInsideThePacketWhateverTheBytes) {
  Random random(4);
  for (int round = 0; round < 20000; ++round) {
    Packet packet(20 + random() % 80);
    for (std::byte& byte : packet) byte = static_cast<std::byte>(random() % 8 == 0 ? random() : 2);
    WriteU8(packet, 0, 0x45);
    WriteU16Be(packet, 2, static_cast<std::uint16_t>(packet.size() - random() % 3));
    WriteU8(packet, 9, kProtocolTcp);
    if (packet.size() > 32) WriteU8(packet, 32, static_cast<std::uint8_t>(random()));
    if (const auto view = ValidatePacket(packet)) view->ClampMss();
  }
}

}  // namespace
}  // namespace tunnel
