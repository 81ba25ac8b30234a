#include <gtest/gtest.h>

#include <string>

#include "driver/filter_text.h"
#include "tests/driver_filters.h"

using driver::WideNumber;
using filters::Compiles;
using filters::Matches;
using packets::Bytes;

namespace {

Bytes UdpOf(const Bytes& payload) {
  return packets::Ip(17, packets::Udp(1, 2, payload));
}

TEST(FilterNames, AreThoseOfTheNetworkLayer) {
  for (const char* text :
       {"zero == 0",           "timestamp > 0",         "event == PACKET",
        "random8 < 128",       "random16 < 128",        "random32 < 128",
        "tcp.PayloadLength",   "tcp.Payload[0] == 1",   "tcp.Payload16[0] == 1",
        "udp.PayloadLength",   "udp.Payload[0] == 1",   "udp.Payload32[0] == 1",
        "tcp.Payload32[-1]",   "udp.Payload16[3b]",     "ipv6.TrafficClass == 0",
        "ipv6.FlowLabel == 0", "ipv6.Length == 0",      "ipv6.NextHdr == UDP",
        "ipv6.HopLimit == 64", "ipv6.SrcAddr == ::1",   "ipv6.DstAddr == 1:2:3:4:5:6:7:8",
        "icmpv6.Type == 128",  "icmpv6.Code == 0",      "icmpv6.Checksum == 0",
        "icmpv6.Body == 0",    "protocol == ICMPV6",    "localAddr == ::ffff:10.0.0.5",
        "packet[-1] == 1",     "packet16[-3b] == 1",    "packet32[5b] == 1",
        "packet[0x1b] == 1",   "remoteAddr == 10.0.0.1"}) {
    EXPECT_TRUE(Compiles(text)) << text;
  }
  for (const char* text : {"layer == 0", "priority == 0", "endpointId == 0", "tcp.Payload == 1",
                           "icmp.Payload[0] == 1", "udp.Payload64[0] == 1", "zero[0] == 1",
                           "random64 == 1", "ipv6.SrcAddr == ::1::2", "event == OPEN",
                           "ipv6.SrcAddr == 1:2:3", "ipv6.SrcAddr == ::12345"}) {
    EXPECT_FALSE(Compiles(text)) << text;
  }
}

TEST(FilterNames, ReadThePayload) {
  const Bytes udp = UdpOf({1, 2, 3, 4, 5, 6});
  const Bytes tcp =
      packets::Ip(6, packets::Tcp(3, 4, {9, 8, 7}), packets::kSource, packets::kDestination, 4);
  for (const char* text : {"udp.PayloadLength == 6", "udp.Payload[0] == 1", "udp.Payload[5] == 6",
                           "udp.Payload16[1] == 0x0304", "udp.Payload32[0] == 0x01020304",
                           "udp.Payload[-1] == 6", "udp.Payload16[-1] == 0x0506",
                           "udp.Payload16[-3] == 0x0102", "udp.Payload32[-1] == 0x03040506",
                           "udp.Payload32[1b] == 0x02030405", "udp.Payload32[-5b] == 0x02030405"}) {
    EXPECT_TRUE(Matches(text, udp)) << text;
  }
  for (const char* text :
       {"udp.Payload[6] >= 0", "udp.Payload32[-2] >= 0", "udp.Payload32[-3b] >= 0",
        "udp.Payload16[5b] >= 0", "tcp.Payload[0] >= 0", "tcp.PayloadLength == 0"}) {
    EXPECT_FALSE(Matches(text, udp)) << text;
  }
  EXPECT_TRUE(Matches("tcp.PayloadLength == 3 and tcp.Payload[0] == 9", tcp));
  EXPECT_FALSE(Matches("udp.PayloadLength == 3", tcp));
  EXPECT_TRUE(Matches("udp.PayloadLength == 0 and !udp.PayloadLength", UdpOf({})));
}

TEST(FilterNames, IndexesCountFromEitherEndOfThePacket) {
  Bytes packet = UdpOf({});
  packet[27] = 0x77;
  for (const char* text :
       {"packet[0] == 0x45", "packet[-1] == 0x77", "packet[-28] == 0x45", "packet16[13] == 0x0077",
        "packet16[-1] == 0x0077", "packet32[-4b] == 0x00080077", "packet32[24b] == 0x00080077"}) {
    EXPECT_TRUE(Matches(text, packet)) << text;
  }
  for (const char* text : {"packet[28] >= 0", "packet[-29] >= 0", "packet[-0] >= 0",
                           "packet32[-3b] >= 0", "packet32[25b] >= 0"}) {
    EXPECT_FALSE(Matches(text, packet)) << text;
  }
}

TEST(FilterNames, ReadTheRecord) {
  const auto filter = driver::Filter::Compile("timestamp == 0x123456789AB and event == PACKET");
  ASSERT_TRUE(filter);
  const Bytes packet = UdpOf({});
  driver::Address address;
  address.timestamp = 0x123456789AB;
  EXPECT_TRUE(filter->Matches({packet, driver::ReadHeaders(packet), address}));
  address.timestamp = 5;
  EXPECT_FALSE(filter->Matches({packet, driver::ReadHeaders(packet), address}));
  EXPECT_TRUE(Matches("!zero and zero == 0", packet));
}

TEST(FilterNames, RandomNumbersDependOnlyOnTheHeaders) {
  int below = 0;
  for (std::uint16_t port = 0; port < 256; ++port) {
    const Bytes packet = packets::Ip(17, packets::Udp(port, 2, {1, 2}));
    Bytes other = packet;
    other.back() = 99;
    const bool is = Matches("random8 < 128", packet);
    EXPECT_EQ(Matches("random8 < 128", other), is);
    EXPECT_EQ(Matches("random16 < 0x8000", other), Matches("random16 < 0x8000", packet));
    EXPECT_TRUE(Matches("random8 <= 0xFF and random32 <= 0xFFFFFFFF", packet));
    if (is) ++below;
  }
  EXPECT_GT(below, 64);
  EXPECT_LT(below, 192);
}

TEST(FilterAddresses, AreNotPlainNumbers) {
  const Bytes packet = UdpOf({});  // 10.10.0.2 to 192.168.77.10
  EXPECT_TRUE(Matches("ip.SrcAddr == 10.10.0.2", packet));
  EXPECT_FALSE(Matches("ip.SrcAddr == 0x0A0A0002", packet));
  EXPECT_FALSE(Matches("ip.SrcAddr == 168427522", packet));
  EXPECT_FALSE(Matches("packet32[3] == 10.10.0.2", packet));
  EXPECT_TRUE(Matches("packet32[3] == 0x0A0A0002", packet));
  EXPECT_FALSE(Matches("localAddr == 0x0A0A0002 or remoteAddr == 0xC0A84D0A", packet));
}

TEST(FilterAddresses, OfTheTwoEndsHaveAnIpv6Form) {
  const Bytes packet = UdpOf({});
  for (const char* text :
       {"localAddr == 10.10.0.2", "localAddr == ::ffff:10.10.0.2", "localAddr == ::FFFF:0a0a:2",
        "localAddr == 0:0:0:0:0:ffff:a0a:2", "localAddr == 0xFFFF0A0A0002",
        "remoteAddr == ::ffff:192.168.77.10", "remoteAddr > ::ffff:192.168.77.9",
        "remoteAddr != ::10.10.0.2", "localAddr < 1::"}) {
    EXPECT_TRUE(Matches(text, packet)) << text;
  }
  for (const char* text : {"localAddr == ::10.10.0.2", "localAddr == ::1", "localAddr > ::1:0:0:0",
                           "ipv6.SrcAddr != ::1", "ipv6.DstAddr == ::ffff:192.168.77.10"}) {
    EXPECT_FALSE(Matches(text, packet)) << text;
  }
}

// A comparison decided by the field's range only tests for the header.
TEST(FilterPresence, IsTheOnlyTestOfADecidedComparison) {
  const Bytes udp = UdpOf({});
  const Bytes tcp = packets::Ip(6, packets::Tcp(1, 2, {}));
  const Bytes ipv6 = [] {
    Bytes packet(48);
    packet[0] = 0x60;
    return packet;
  }();
  for (const char* never :
       {"tcp.UrgPtr == 70000", "tcp.UrgPtr > 65535", "tcp.UrgPtr > 70000", "tcp.UrgPtr >= 65536",
        "tcp.UrgPtr < 0", "not tcp.UrgPtr != 70000", "not tcp.UrgPtr <= 65535", "tcp.Syn > 1",
        "tcp.Syn == 2", "tcp.HdrLength == 16", "tcp.SeqNum == 4294967296", "tcp.UrgPtr == 10.0.0.1",
        "tcp.PayloadLength > 65535"}) {
    EXPECT_FALSE(Matches(never, tcp)) << never;
    EXPECT_TRUE(Matches(never, udp)) << never;
    EXPECT_TRUE(Matches(never, ipv6)) << never;
  }
  for (const char* always : {"tcp.UrgPtr != 70000", "tcp.UrgPtr <= 65535", "tcp.UrgPtr < 65536",
                             "tcp.UrgPtr >= 0", "not tcp.UrgPtr == 70000", "tcp.Syn <= 1",
                             "tcp.SeqNum < 0x100000000", "tcp.SrcPort < 10.0.0.1"}) {
    EXPECT_TRUE(Matches(always, tcp)) << always;
    EXPECT_FALSE(Matches(always, udp)) << always;
    EXPECT_FALSE(Matches(always, ipv6)) << always;
  }
  EXPECT_TRUE(Matches("ip.TTL == 256 and ipv6.HopLimit < 256", ipv6));
  EXPECT_TRUE(Matches("ipv6.HopLimit == 256", udp));
  EXPECT_TRUE(Matches("ip.SrcAddr >= 0.0.0.0 and ip.SrcAddr <= 255.255.255.255", udp));
  EXPECT_FALSE(Matches("ip.SrcAddr >= 0.0.0.0 and ip.SrcAddr <= 255.255.255.255", ipv6));
  EXPECT_FALSE(Matches("ip.SrcAddr == 0xA0A0002", udp));
}

TEST(FilterPresence, IsNotTestedInsideTheRange) {
  const Bytes udp = UdpOf({});
  const Bytes tcp = packets::Ip(6, packets::Tcp(1, 2, {}));
  for (const char* text : {"tcp.UrgPtr == 65535", "tcp.UrgPtr > 65534", "tcp.UrgPtr < 1",
                           "tcp.UrgPtr == 0", "not tcp.UrgPtr == 1"}) {
    EXPECT_FALSE(Matches(text, udp)) << text;
  }
  EXPECT_TRUE(Matches("tcp.UrgPtr == 0 and tcp.UrgPtr < 1 and tcp.UrgPtr < 65535", tcp));
}

TEST(FilterPresence, TakesNoTestMoreOrLess) {
  const auto filter = driver::Filter::Compile("tcp.UrgPtr == 70000 and udp and not not icmp");
  ASSERT_TRUE(filter);
  EXPECT_EQ(filter->TestCount(), 3U);
}

TEST(FilterNumbers, HaveUpTo128Bits) {
  EXPECT_EQ(driver::ParsePlainNumber("18446744073709551616"), (WideNumber{1, 0}));
  EXPECT_EQ(driver::ParsePlainNumber("340282366920938463463374607431768211455"),
            (WideNumber{UINT64_MAX, UINT64_MAX}));
  EXPECT_EQ(driver::ParsePlainNumber("340282366920938463463374607431768211456"), std::nullopt);
  EXPECT_EQ(driver::ParsePlainNumber("0x10000000000000000"), (WideNumber{1, 0}));
  EXPECT_EQ(driver::ParsePlainNumber("000042"), (WideNumber{0, 42}));
  for (const char* text : {"", "0x", "-1", "+1", " 1", "1 ", "12ab", "0x1g", "1.2"}) {
    EXPECT_EQ(driver::ParsePlainNumber(text), std::nullopt) << text;
  }
}

TEST(FilterNumbers, ReadAndWriteAddresses) {
  EXPECT_EQ(driver::ParseIpv4("192.168.77.10"), 0xC0A84D0AU);
  for (const char* text : {"", "1.2.3", "1.2.3.4.5", "1.2.3.256", "1..2.3", "1.2.3.", ".1.2.3"}) {
    EXPECT_EQ(driver::ParseIpv4(text), std::nullopt) << text;
  }
  EXPECT_EQ(driver::FormatIpv4(0xC0A84D0A), "192.168.77.10");
  EXPECT_EQ(driver::FormatIpv4(0), "0.0.0.0");

  EXPECT_EQ(driver::ParseIpv6("::"), (WideNumber{0, 0}));
  EXPECT_EQ(driver::ParseIpv6("::1"), (WideNumber{0, 1}));
  EXPECT_EQ(driver::ParseIpv6("fe80::1:2"), (WideNumber{0xFE80000000000000, 0x10002}));
  EXPECT_EQ(driver::ParseIpv6("1:2:3:4:5:6:7:8"),
            (WideNumber{0x0001000200030004, 0x0005000600070008}));
  EXPECT_EQ(driver::ParseIpv6("1:2:3:4:5:6:10.0.0.1"),
            (WideNumber{0x0001000200030004, 0x000500060A000001}));
  EXPECT_EQ(driver::ParseIpv6("::ffff:10.0.0.1"), driver::WideIpv4(0x0A000001));
  for (const char* text :
       {"", ":", ":::", "1", "1:2:3:4:5:6:7", "1:2:3:4:5:6:7:8:9", "1::2::3", "::12345", "::g",
        "1:2:3:4:5:6:7::8", "::1:", ":1::", "10.0.0.1", "::10.0.0.1:5", "1:2:3:4:5:6:7:10.0.0.1"}) {
    EXPECT_EQ(driver::ParseIpv6(text), std::nullopt) << text;
  }
}

}  // namespace
