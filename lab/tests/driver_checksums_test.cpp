#include "driver/checksums.h"

#include <gtest/gtest.h>

#include <string>

#include "tests/driver_packets.h"

namespace {

using driver::Address;
using driver::CalcChecksums;
using packets::Bytes;

constexpr std::uint32_t kIpBit = driver::kAddressIpChecksum;
constexpr std::uint32_t kTcpBit = driver::kAddressTcpChecksum;
constexpr std::uint32_t kUdpBit = driver::kAddressUdpChecksum;
constexpr unsigned kGarbage = 0xDEAD;

struct Kind {
  const char* name;
  std::uint8_t protocol;
  std::size_t fieldAt;
  std::uint32_t validBits;
  std::uint64_t leaveOut;
  Bytes (*make)(const Bytes& payload, unsigned sum);
};

const Kind kKinds[] = {
    {"icmp", 1, 2, kIpBit, 2, [](const Bytes& p, unsigned s) { return packets::Icmp(p, s); }},
    {"tcp", 6, 16, kIpBit | kTcpBit, 8,
     [](const Bytes& p, unsigned s) { return packets::Tcp(502, 50000, p, s); }},
    {"udp", 17, 6, kIpBit | kUdpBit, 16,
     [](const Bytes& p, unsigned s) { return packets::Udp(5000, 6000, p, s); }},
};

Bytes WithGarbage(const Kind& kind, std::size_t payloadBytes, std::size_t optionBytes = 0) {
  Bytes packet = packets::Ip(kind.protocol, kind.make(packets::Payload(payloadBytes), kGarbage),
                             packets::kSource, packets::kDestination, optionBytes);
  packets::SetWord(packet, 10, kGarbage);
  return packet;
}

TEST(CalcChecksums, WritesEverySumFromScratchAndSetsValidBits) {
  for (const Kind& kind : kKinds) {
    for (const std::size_t payload : {0U, 1U, 2U, 31U, 1472U, 65000U}) {
      for (const std::size_t options : {0U, 4U, 40U}) {
        SCOPED_TRACE(std::string(kind.name) + " " + std::to_string(payload));
        Bytes packet = WithGarbage(kind, payload, options);
        Address address;
        address.flags = driver::kAddressOutbound;
        EXPECT_TRUE(CalcChecksums(packet, &address, 0));
        EXPECT_EQ(packets::Word(packet, 10), packets::ExpectedIpSum(packet));
        EXPECT_EQ(packets::Word(packet, 20 + options + kind.fieldAt),
                  packets::ExpectedTransportSum(packet, kind.fieldAt));
        EXPECT_EQ(address.flags, driver::kAddressOutbound | kind.validBits);
      }
    }
  }
}

TEST(CalcChecksums, NeedsNoAddress) {
  for (const Kind& kind : kKinds) {
    Bytes packet = WithGarbage(kind, 9);
    EXPECT_TRUE(CalcChecksums(packet, nullptr, 0)) << kind.name;
    EXPECT_EQ(packets::Word(packet, 20 + kind.fieldAt),
              packets::ExpectedTransportSum(packet, kind.fieldAt));
  }
}

TEST(CalcChecksums, OmitsTheSumsNamedByTheFlags) {
  for (const Kind& kind : kKinds) {
    SCOPED_TRACE(kind.name);
    Bytes packet = WithGarbage(kind, 9);
    Address address;
    EXPECT_TRUE(CalcChecksums(packet, &address, kind.leaveOut));
    EXPECT_EQ(packets::Word(packet, 10), packets::ExpectedIpSum(packet));
    EXPECT_EQ(packets::Word(packet, 20 + kind.fieldAt), kGarbage);
    EXPECT_EQ(address.flags, kIpBit);

    packet = WithGarbage(kind, 9);
    address.flags = 0;
    EXPECT_TRUE(CalcChecksums(packet, &address, 1));
    EXPECT_EQ(packets::Word(packet, 10), kGarbage);
    EXPECT_EQ(packets::Word(packet, 20 + kind.fieldAt),
              packets::ExpectedTransportSum(packet, kind.fieldAt));
    EXPECT_EQ(address.flags, kind.validBits & ~kIpBit);
  }
}

TEST(CalcChecksums, FillsAnAbsentUdpSumAndWritesZeroAsAllOnes) {
  Bytes absent = packets::Ip(17, packets::Udp(1, 2, packets::Payload(10)));
  EXPECT_TRUE(CalcChecksums(absent, nullptr, 0));
  EXPECT_EQ(packets::Word(absent, 26), packets::ExpectedTransportSum(absent, 6));

  // The payload word that makes the computed sum 0.
  Bytes zero = packets::Ip(17, packets::Udp(1, 2, {0, 0}));
  packets::SetWord(zero, 28, packets::ExpectedTransportSum(zero, 6));
  ASSERT_EQ(packets::ExpectedTransportSum(zero, 6), 0U);
  EXPECT_TRUE(CalcChecksums(zero, nullptr, 0));
  EXPECT_EQ(packets::Word(zero, 26), 0xFFFF);

  Bytes tcp = packets::Ip(6, packets::Tcp(1, 2, {0, 0}));
  packets::SetWord(tcp, 40, packets::ExpectedTransportSum(tcp, 16));
  EXPECT_TRUE(CalcChecksums(tcp, nullptr, 0));
  EXPECT_EQ(packets::Word(tcp, 36), 0);
}

// Rows in which only the IP sum is written.
struct OnlyIpRow {
  const char* name;
  bool result;
  Bytes packet;
};

std::vector<OnlyIpRow> OnlyIpRows() {
  std::vector<OnlyIpRow> rows;
  for (const Kind& kind : kKinds) {
    Bytes first = WithGarbage(kind, 64);
    packets::SetWord(first, 6, 0x2000);
    Bytes later = WithGarbage(kind, 64);
    packets::SetWord(later, 6, 0x0003);
    Bytes middle = WithGarbage(kind, 64);
    packets::SetWord(middle, 6, 0x2003);
    Bytes cut = WithGarbage(kind, 64);
    cut.pop_back();
    rows.insert(rows.end(), {{"first fragment", false, first},
                             {"last fragment", true, later},
                             {"middle fragment", true, middle},
                             {"longer than the buffer", false, cut}});
  }
  Bytes offset = packets::Ip(6, packets::Tcp(1, 2, packets::Payload(8), kGarbage));
  offset[32] = 0x40;
  rows.push_back({"TCP offset under 5", true, offset});
  Bytes otherFirst = packets::Ip(47, packets::Payload(40));
  packets::SetWord(otherFirst, 6, 0x2000);
  rows.push_back({"first fragment of another protocol", true, otherFirst});
  Bytes shortFirst = packets::Ip(17, packets::Payload(7));
  packets::SetWord(shortFirst, 6, 0x2000);
  rows.push_back({"first fragment without its transport header", true, shortFirst});
  rows.push_back({"other protocol", true, packets::Ip(47, packets::Payload(40))});
  rows.push_back({"short ICMP header", true, packets::Ip(1, packets::Payload(7))});
  rows.push_back({"short TCP header", true, packets::Ip(6, packets::Payload(19))});
  rows.push_back({"short UDP header", true, packets::Ip(17, packets::Payload(7))});
  rows.push_back({"no transport at all", true, packets::Ip(17, {})});
  return rows;
}

TEST(CalcChecksums, WritesOnlyTheIpSumForFragmentsAndOddTransports) {
  for (const OnlyIpRow& row : OnlyIpRows()) {
    SCOPED_TRACE(row.name);
    Bytes packet = row.packet;
    Address address;
    EXPECT_EQ(CalcChecksums(packet, &address, 0), row.result);
    Bytes expected = row.packet;
    packets::SetWord(expected, 10, packets::ExpectedIpSum(row.packet));
    EXPECT_EQ(packet, expected);
    EXPECT_EQ(address.flags, kIpBit);
  }
}

TEST(CalcChecksums, FailsOnlyIfTheTransportsSumWasRequested) {
  for (const Kind& kind : kKinds) {
    SCOPED_TRACE(kind.name);
    Bytes first = WithGarbage(kind, 64);
    packets::SetWord(first, 6, 0x2000);
    Bytes cut = WithGarbage(kind, 64);
    cut.pop_back();
    for (Bytes packet : {first, cut}) {
      Bytes expected = packet;
      packets::SetWord(expected, 10, packets::ExpectedIpSum(packet));
      Address address;
      EXPECT_TRUE(CalcChecksums(packet, &address, kind.leaveOut));
      EXPECT_EQ(packet, expected);
      EXPECT_EQ(address.flags, kIpBit);

      address.flags = 0;
      EXPECT_FALSE(CalcChecksums(packet, &address, 1));
      EXPECT_EQ(packet, expected);
      EXPECT_EQ(address.flags, 0U);
    }
  }
}

TEST(CalcChecksums, ClearsNoBitOfTheRecord) {
  Bytes packet = WithGarbage(kKinds[0], 9);
  Address address;
  address.flags = kTcpBit | kUdpBit;
  EXPECT_TRUE(CalcChecksums(packet, &address, 1));
  EXPECT_EQ(address.flags, kTcpBit | kUdpBit);
}

TEST(CalcChecksums, SumsUpTheBytesThatATcpHeaderClaimsPastThePacket) {
  constexpr std::size_t kSumAt = 36;
  Bytes packet = packets::Ip(6, packets::Tcp(502, 50000, {}, kGarbage));
  packet[32] = 0xF0;  // states 60 bytes but has 20
  const std::size_t bytes = packet.size();
  packet.resize(bytes + driver::kMaxReadBehind);
  const auto sumOf = [&packet, bytes] {
    Address address;
    EXPECT_TRUE(CalcChecksums(std::span(packet).first(bytes), &address, 0));
    EXPECT_EQ(address.flags, kIpBit | kTcpBit);
    EXPECT_EQ(packets::Word(packet, 10), packets::ExpectedIpSum(packet));
    return packets::Word(packet, kSumAt);
  };
  const unsigned before = sumOf();
  EXPECT_NE(before, kGarbage);
  EXPECT_EQ(sumOf(), before) << "the sum is not its own input";
  packet.back() = 7;
  EXPECT_EQ(sumOf(), before - 7) << "the last byte that can be announced";
  EXPECT_EQ(packet.back(), 7) << "nothing is written there";
}

TEST(CalcChecksums, IgnoresBytesPastTheTotalLength) {
  for (const Kind& kind : kKinds) {
    SCOPED_TRACE(kind.name);
    Bytes packet = WithGarbage(kind, 11);
    packet.insert(packet.end(), {0xAB, 0xCD, 0xEF});
    EXPECT_TRUE(CalcChecksums(packet, nullptr, 0));
    EXPECT_EQ(packets::Word(packet, 20 + kind.fieldAt),
              packets::ExpectedTransportSum(packet, kind.fieldAt));
    EXPECT_EQ(Bytes(packet.end() - 3, packet.end()), (Bytes{0xAB, 0xCD, 0xEF}));
  }
}

TEST(CalcChecksums, RefusesOtherPacketsThanIpv4AndWritesNothing) {
  const Bytes sane = packets::Ip(17, packets::Udp(1, 2, {}, kGarbage));
  Bytes version = sane, headerLength = sane, totalLength = sane, longHeader = sane;
  version[0] = 0x55;
  headerLength[0] = 0x44;
  packets::SetWord(totalLength, 2, 19);
  longHeader[0] = 0x4F;  // 60 bytes, the buffer holds 28
  const Bytes rows[] = {
      {}, Bytes(sane.begin(), sane.begin() + 19), version, headerLength, totalLength, longHeader};
  for (const Bytes& row : rows) {
    Bytes packet = row;
    Address address;
    EXPECT_FALSE(CalcChecksums(packet, &address, 0));
    EXPECT_EQ(packet, row);
    EXPECT_EQ(address.flags, 0U);
  }
  EXPECT_FALSE(CalcChecksums({}, nullptr, 0));
}

TEST(DecrementTtl, KeepsTheIpSumAsRightOrWrongAsItWas) {
  Bytes packet = packets::Ip(17, packets::Udp(1, 2, packets::Payload(3)));
  packet[8] = 255;
  for (unsigned identifier = 0; identifier <= 0xFFFF; identifier += 0x1111) {
    packets::SetWord(packet, 4, identifier);
    packet[8] = 255;
    packets::SetWord(packet, 10, packets::ExpectedIpSum(packet));
    for (unsigned ttl = 254; ttl > 0; --ttl) {
      ASSERT_TRUE(driver::DecrementTtl(packet));
      ASSERT_EQ(packet[8], ttl);
      const Bytes header(packet.begin(), packet.begin() + 20);
      ASSERT_EQ(packets::Remainder(header), 0U) << identifier << " " << ttl;
    }
  }
  packets::SetWord(packet, 10, kGarbage);
  packet[8] = 64;
  EXPECT_TRUE(driver::DecrementTtl(packet));
  EXPECT_EQ(packets::Word(packet, 10), kGarbage + 0x100);
}

TEST(DecrementTtl, RefusesAPacketWithoutAHopLeft) {
  for (const std::uint8_t ttl : {std::uint8_t{0}, std::uint8_t{1}}) {
    Bytes packet = packets::Ip(17, packets::Udp(1, 2, {}));
    packet[8] = ttl;
    const Bytes before = packet;
    EXPECT_FALSE(driver::DecrementTtl(packet));
    EXPECT_EQ(packet, before);
  }
  Bytes ipv6(40, 0x60);
  EXPECT_FALSE(driver::DecrementTtl(ipv6));
  EXPECT_FALSE(driver::DecrementTtl({}));
}

TEST(ReceiverChecksums, AreRightOnlyWhenEverySumIs) {
  for (const Kind& kind : kKinds) {
    SCOPED_TRACE(kind.name);
    Bytes packet = WithGarbage(kind, 33);
    ASSERT_TRUE(CalcChecksums(packet, nullptr, 0));
    const auto headers = driver::ReadHeaders(packet);
    ASSERT_TRUE(headers);
    EXPECT_TRUE(driver::HasValidChecksums(packet, *headers));
    for (const std::size_t at :
         {std::size_t{8}, std::size_t{20} + kind.fieldAt, packet.size() - 1}) {
      Bytes damaged = packet;
      damaged[at] ^= 0x10U;
      EXPECT_FALSE(driver::HasValidChecksums(damaged, *headers)) << at;
    }
  }
}

TEST(ReceiverChecksums, AcceptAnAbsentUdpSumAndUncheckableFragments) {
  Bytes udp = packets::Ip(17, packets::Udp(1, 2, packets::Payload(5)));
  CalcChecksums(udp, nullptr, 0);
  packets::SetWord(udp, 26, 0);
  EXPECT_TRUE(driver::HasValidChecksums(udp, *driver::ReadHeaders(udp)));

  Bytes fragment = packets::Ip(17, packets::Payload(64));
  packets::SetWord(fragment, 6, 0x0010);
  CalcChecksums(fragment, nullptr, 0);
  EXPECT_TRUE(driver::HasValidChecksums(fragment, *driver::ReadHeaders(fragment)));
}

TEST(Offload, ClearsSumsAndTheDriverCompletesThemWhereBitsAreClear) {
  for (const Kind& kind : kKinds) {
    SCOPED_TRACE(kind.name);
    Bytes whole = WithGarbage(kind, 20);
    CalcChecksums(whole, nullptr, 0);
    const auto headers = driver::ReadHeaders(whole);
    Bytes packet = whole;
    driver::ClearChecksums(packet, *headers);
    EXPECT_EQ(packets::Word(packet, 10), 0);
    EXPECT_EQ(packets::Word(packet, 20 + kind.fieldAt), 0);
    Bytes completed = packet;
    driver::CompleteChecksums(completed, *headers, Address());
    EXPECT_EQ(completed, whole);
  }
}

TEST(Offload, KeepsSumsMarkedValidInTheRecord) {
  for (const Kind& kind : kKinds) {
    SCOPED_TRACE(kind.name);
    Bytes packet = WithGarbage(kind, 20);
    const Bytes before = packet;
    Address address;
    address.flags = kIpBit | kTcpBit | kUdpBit;
    driver::CompleteChecksums(packet, *driver::ReadHeaders(packet), address);
    EXPECT_EQ(packet, before);
  }
}

// They cannot be checked, because the driver's buffer ends with the packet.
TEST(Offload, KeepsTheTransportOfACutTcpHeader) {
  Bytes packet = packets::Ip(6, packets::Tcp(1, 2, {}, kGarbage));
  packet[32] = 0x60;
  const auto headers = driver::ReadHeaders(packet);
  ASSERT_TRUE(headers);
  EXPECT_EQ(headers->transport, driver::Transport::Tcp);
  driver::ClearChecksums(packet, *headers);
  driver::CompleteChecksums(packet, *headers, Address());
  EXPECT_EQ(packets::Word(packet, 10), packets::ExpectedIpSum(packet));
  EXPECT_EQ(packets::Word(packet, 36), kGarbage);
  EXPECT_TRUE(driver::HasValidChecksums(packet, *headers));
}

TEST(Offload, KeepsTheTransportOfFragments) {
  Bytes fragment = WithGarbage(kKinds[2], 64);
  packets::SetWord(fragment, 6, 0x2000);
  driver::ClearChecksums(fragment, *driver::ReadHeaders(fragment));
  EXPECT_EQ(packets::Word(fragment, 10), 0);
  EXPECT_EQ(packets::Word(fragment, 26), kGarbage);
}

}  // namespace
