#include <gtest/gtest.h>

#include <string>

#include "tests/driver_filters.h"

using filters::Matches;
using packets::Bytes;

namespace {

TEST(FilterMeaning, AndBindsTighterThanOr) {
  const Bytes udp = packets::Ip(17, packets::Udp(1, 2, {}));
  EXPECT_TRUE(Matches("udp or tcp and false", udp));
  EXPECT_FALSE(Matches("(udp or tcp) and false", udp));
  EXPECT_TRUE(Matches("false and tcp or udp", udp));
  EXPECT_TRUE(Matches("(tcp ? false : true)", udp));
  EXPECT_FALSE(Matches("(udp ? false : true)", udp));
}

TEST(FilterMeaning, NotBindsToOneTestWithItsComparison) {
  const Bytes udp = packets::Ip(17, packets::Udp(1, 2, {}));
  EXPECT_FALSE(Matches("not udp.DstPort == 2", udp));
  EXPECT_TRUE(Matches("not udp.DstPort == 3", udp));
  EXPECT_TRUE(Matches("!tcp and udp", udp));
  EXPECT_FALSE(Matches("not udp and tcp or false", udp));
  EXPECT_TRUE(Matches("!!udp and not not not tcp", udp));
  EXPECT_FALSE(Matches("not not udp.DstPort == 3", udp));
}

TEST(FilterMeaning, ComparesAddressesUnsignedAtTheEnds) {
  const auto at = [](std::uint32_t destination) {
    return packets::Ip(17, packets::Udp(1, 2, {}), packets::kSource, destination);
  };
  const std::string range = "ip.DstAddr >= 192.168.77.0 and ip.DstAddr <= 192.168.77.255";
  EXPECT_FALSE(Matches(range, at(0xC0A84CFF)));
  EXPECT_TRUE(Matches(range, at(0xC0A84D00)));
  EXPECT_TRUE(Matches(range, at(0xC0A84DFF)));
  EXPECT_FALSE(Matches(range, at(0xC0A84E00)));
  const std::string all = "ip.DstAddr >= 0.0.0.0 and ip.DstAddr <= 255.255.255.255";
  EXPECT_TRUE(Matches(all, at(0)));
  EXPECT_TRUE(Matches(all, at(0xFFFFFFFF)));
  for (const char* text : {"ip.TTL < 65", "ip.TTL <= 64", "ip.TTL > 63", "ip.TTL >= 64",
                           "ip.TTL != 63", "ip.TTL = 64", "ip.TTL == 0x40"}) {
    EXPECT_TRUE(Matches(text, at(1))) << text;
  }
  for (const char* text : {"ip.TTL < 64", "ip.TTL > 64", "ip.TTL != 64", "ip.TTL == 63"}) {
    EXPECT_FALSE(Matches(text, at(1))) << text;
  }
}

TEST(FilterMeaning, TransportNamesNeedTheTransportHeader) {
  Bytes first = packets::Ip(17, packets::Udp(1, 2, packets::Payload(16)));
  packets::SetWord(first, 6, 0x2000);
  Bytes later = first;
  packets::SetWord(later, 6, 0x0003);
  EXPECT_TRUE(Matches("udp", first));
  EXPECT_TRUE(Matches("udp.DstPort == 2", first));
  EXPECT_FALSE(Matches("udp", later));
  EXPECT_FALSE(Matches("udp.DstPort == 2", later));
  EXPECT_TRUE(Matches("ip.Protocol == UDP", later));
  EXPECT_TRUE(Matches("udp or fragment", later));
  EXPECT_TRUE(Matches("fragment", first));
  EXPECT_FALSE(Matches("udp", packets::Ip(17, packets::Payload(7))));
  Bytes tcp = packets::Ip(6, packets::Tcp(1, 2, {}));
  tcp[32] = 0xF0;  // states more than there is
  EXPECT_TRUE(Matches("tcp.DstPort == 2", tcp));
  tcp[32] = 0x40;  // states less than a header
  EXPECT_FALSE(Matches("tcp", tcp));
}

TEST(FilterMeaning, AComparisonOnAMissingHeaderFailsEvenNegated) {
  const Bytes udp = packets::Ip(17, packets::Udp(1, 2, {}));
  for (const char* text : {"tcp.DstPort == 2", "tcp.DstPort != 2", "not tcp.DstPort == 2",
                           "tcp.Syn", "!tcp.Syn", "icmp.Type == 8", "packet32[7] == 0"}) {
    EXPECT_FALSE(Matches(text, udp)) << text;
  }
  EXPECT_FALSE(Matches("ip", {0x60, 0, 0, 0}));
  EXPECT_FALSE(Matches("ip.TTL >= 0", {0x60, 0, 0, 0}));
}

TEST(FilterMeaning, ReadsDirectionAndMarksFromTheRecord) {
  const Bytes icmp = packets::Ip(1, packets::Icmp({}));
  const auto both = driver::kAddressOutbound | driver::kAddressLoopback;
  EXPECT_TRUE(Matches("outbound and !inbound", icmp));
  EXPECT_TRUE(Matches("inbound and !outbound", icmp, 0));
  EXPECT_TRUE(Matches("loopback", icmp, both));
  EXPECT_FALSE(Matches("!loopback", icmp, both));
  EXPECT_TRUE(Matches("impostor", icmp, driver::kAddressImpostor));
  EXPECT_TRUE(Matches("!impostor", icmp));
  EXPECT_TRUE(Matches("ifIdx == 7 and subIfIdx == 0", icmp));
}

TEST(FilterMeaning, ReadsFieldsByteForByte) {
  const Bytes tcp = packets::Ip(6, packets::Tcp(50000, 502, packets::Payload(3)), packets::kSource,
                                packets::kDestination, 8);
  for (const char* text : {"ip.HdrLength == 7",
                           "ip.Length == 51",
                           "length == 51",
                           "ip.Id == 0x1234",
                           "ip.TTL == 64",
                           "ip.SrcAddr == 10.10.0.2",
                           "localAddr == 10.10.0.2",
                           "remoteAddr == 192.168.77.10",
                           "localPort == 50000",
                           "remotePort == 502",
                           "tcp.SrcPort == 50000",
                           "tcp.DstPort == 502",
                           "tcp.SeqNum == 0x01020304",
                           "tcp.AckNum == 0x05060708",
                           "tcp.HdrLength == 5",
                           "tcp.Syn",
                           "!tcp.Ack",
                           "tcp.Window == 0x2000",
                           "packet[16] == 192",
                           "packet16[8] == 0xC0A8",
                           "packet32[4] == 0xC0A84D0A",
                           "protocol == TCP",
                           "!ip.DF and !ip.MF"}) {
    EXPECT_TRUE(Matches(text, tcp)) << text;
  }
}

TEST(FilterMeaning, TheTunnelFiltersMatchTheirPackets) {
  const std::string f1 =
      filters::kF1Head + "(ip.DstAddr >= 192.168.77.0 and ip.DstAddr <= 192.168.77.255))";
  const std::string f2 = filters::kF2Head +
                         "(ip.DstAddr >= 192.168.77.0 and ip.DstAddr <= 192.168.77.255)" +
                         filters::kF2Tail;
  const auto to = [](std::uint8_t protocol, const Bytes& transport, std::uint32_t destination) {
    return packets::Ip(protocol, transport, packets::kSource, destination);
  };
  const Bytes udp = packets::Udp(1, 2, {});
  for (const std::string& filter : {f1, f2}) {
    EXPECT_TRUE(Matches(filter, to(1, packets::Icmp({}), packets::kDestination)));
    EXPECT_TRUE(Matches(filter, to(6, packets::Tcp(1, 2, {}), packets::kDestination)));
    EXPECT_TRUE(Matches(filter, to(17, udp, packets::kDestination)));
    EXPECT_FALSE(Matches(filter, to(47, packets::Payload(40), packets::kDestination)));
    EXPECT_FALSE(Matches(filter, to(17, udp, packets::kDestination), 0));
    EXPECT_FALSE(Matches(filter, to(17, udp, 0xC0A84E01)));
    EXPECT_FALSE(Matches(filter, to(17, udp, packets::kDestination),
                         driver::kAddressOutbound | driver::kAddressImpostor));
  }
  EXPECT_FALSE(Matches(f1, to(17, udp, 0xFFFFFFFF)));
  EXPECT_TRUE(Matches(f2, to(17, udp, 0xFFFFFFFF)));
  EXPECT_FALSE(Matches(f2, to(1, packets::Icmp({}), 0xFFFFFFFF)));
}

}  // namespace
