#include "driver/filter.h"

#include <gtest/gtest.h>

#include <functional>
#include <string>

#include "driver/filter_lexer.h"
#include "lab/driver_packets.h"

namespace {

using driver::Address;
using driver::Filter;
using packets::Bytes;

const std::string kF1Head = "outbound and ip and !impostor and (icmp or tcp or udp) and (";
const std::string kF2Head = "outbound and ip and !impostor and (((icmp or tcp or udp) and (";
const std::string kF2Tail = ")) or (udp and ip.DstAddr == 255.255.255.255))";

std::string Dotted(unsigned i, unsigned last) {
  return std::string("10.") + std::to_string(i / 256) + "." + std::to_string(i % 256) + "." +
         std::to_string(last);
}

std::string Range(unsigned i) {
  return std::string("(ip.DstAddr >= ") + Dotted(i, 0) + " and ip.DstAddr <= " + Dotted(i, 255) +
         ")";
}

// `count` clauses joined with " or " between `head` and `tail`.
std::string Clauses(const std::string& head, unsigned count, const std::string& tail,
                    const std::function<std::string(unsigned)>& clause = Range) {
  std::string text = head;
  for (unsigned i = 0; i < count; ++i) text += (i == 0 ? "" : " or ") + clause(i);
  return text + tail;
}

bool Compiles(const std::string& text) {
  return Filter::Compile(text).has_value();
}

// Compiles and stays within what the driver takes.
bool Opens(const std::string& text) {
  const auto filter = Filter::Compile(text);
  return filter && filter->TestCount() <= driver::kMaxDriverTests;
}

bool Matches(const std::string& text, const Bytes& packet,
             std::uint32_t flags = driver::kAddressOutbound) {
  const auto filter = Filter::Compile(text);
  EXPECT_TRUE(filter) << text;
  Address address;
  address.flags = flags;
  address.interfaceIndex = 7;
  return filter && filter->Matches({packet, driver::ReadHeaders(packet), address});
}

TEST(FilterLimits, BothTunnelFiltersHaveTenTestsWithTheirExampleRoutes) {
  const auto f1 = Filter::Compile(Clauses(kF1Head, 2, ")"));
  const auto f2 = Filter::Compile(
      "outbound and ip and !impostor and (((icmp or tcp or udp) and ((ip.DstAddr >= 10.0.0.0 and "
      "ip.DstAddr <= 10.0.0.255))) or (udp and ip.DstAddr == 255.255.255.255))");
  ASSERT_TRUE(f1 && f2);
  EXPECT_EQ(f1->TestCount(), 10U);
  EXPECT_EQ(f2->TestCount(), 10U);
}

struct LimitRow {
  const char* name;
  std::function<std::string(unsigned)> make;
  unsigned compilesUpTo;
  unsigned opensUpTo;
};

TEST(FilterLimits, AreThePublishedOnesForOurShapes) {
  const LimitRow rows[] = {
      {"F1", [](unsigned n) { return Clauses(kF1Head, n, ")"); }, 125, 124},
      {"F1 + !loopback",
       [](unsigned n) { return std::string("!loopback and ") + Clauses(kF1Head, n, ")"); }, 124,
       124},
      {"F2", [](unsigned n) { return Clauses(kF2Head, n, kF2Tail); }, 124, 123},
      {"F2 + !loopback + port",
       [](unsigned n) {
         return std::string("!loopback and udp.DstPort != 67 and ") + Clauses(kF2Head, n, kF2Tail);
       },
       123, 122},
      {"single hosts",
       [](unsigned n) {
         return Clauses(kF1Head, n, ")",
                        [](unsigned i) { return std::string("ip.DstAddr == ") + Dotted(i, 1); });
       },
       250, 249},
      {"doubled parentheses",
       [](unsigned n) {
         return Clauses(kF1Head, n, ")",
                        [](unsigned i) { return std::string("(") + Range(i) + ")"; });
       },
       105, 105},
      {"extra ip in every clause",
       [](unsigned n) {
         return Clauses(kF1Head, n, ")",
                        [](unsigned i) { return std::string("(ip and ") + Range(i).substr(1); });
       },
       83, 83},
      {"packet16",
       [](unsigned n) {
         return Clauses(kF1Head, n, ")", [](unsigned i) {
           return std::string("packet16[8] == ") + std::to_string(i);
         });
       },
       180, 180},
  };
  for (const LimitRow& row : rows) {
    SCOPED_TRACE(row.name);
    EXPECT_TRUE(Compiles(row.make(row.compilesUpTo)));
    EXPECT_FALSE(Compiles(row.make(row.compilesUpTo + 1)));
    EXPECT_TRUE(Opens(row.make(row.opensUpTo)));
    EXPECT_FALSE(Opens(row.make(row.opensUpTo + 1)));
  }
}

TEST(FilterLimits, CountTokensUpToTheEnd) {
  // Each pair of parentheses is two tokens; name and end are two more.
  const auto nested = [](std::size_t pairs) {
    return std::string(pairs, '(') + "true" + std::string(pairs, ')');
  };
  EXPECT_TRUE(Compiles(nested((driver::kMaxTokens - 2) / 2)));
  EXPECT_FALSE(Compiles(nested((driver::kMaxTokens - 2) / 2 + 1)));
}

TEST(FilterLimits, TokensHaveAtMost39Characters) {
  const std::string zeros(35, '0');
  EXPECT_TRUE(Compiles(std::string("ip.TTL == ") + zeros + "1234"));
  EXPECT_FALSE(Compiles(std::string("ip.TTL == ") + zeros + "01234"));
}

TEST(FilterLimits, NestingEndsAt1024Levels) {
  driver::FilterError error;
  EXPECT_FALSE(Filter::Compile(std::string(1024, '('), &error));
  EXPECT_STREQ(error.message, "Filter expression is too deep");
  EXPECT_FALSE(Filter::Compile(std::string(1023, '('), &error));
  EXPECT_STRNE(error.message, "Filter expression is too deep");
  // Each "or" takes a level: 824 groups leave room for 199 of them, not for 200.
  const auto deep = [](unsigned groups, unsigned ors) {
    std::string text(groups, '(');
    for (unsigned i = 0; i < ors; ++i) text += "true or ";
    return text;
  };
  Filter::Compile(deep(824, 199) + "true", &error);
  EXPECT_STRNE(error.message, "Filter expression is too deep");
  Filter::Compile(deep(824, 200) + "true", &error);
  EXPECT_STREQ(error.message, "Filter expression is too deep");
}

TEST(FilterSyntax, AcceptsTheLanguage) {
  for (const char* text : {"true",
                           "false",
                           "(false)",
                           "not tcp",
                           "!tcp",
                           "! tcp",
                           "tcp and udp or icmp",
                           "tcp && udp || icmp",
                           "ip.DstAddr = 1.2.3.4",
                           "ip.DstAddr==1.2.3.4",
                           "ip.TTL<=0xfF",
                           "(tcp? false: true)",
                           "(tcp ? udp or icmp : (ip ? true : false))",
                           "ip.Protocol == UDP",
                           "packet[16] == 10",
                           "packet16[8] != 0x0A0A",
                           "packet32[4] > 5",
                           "not ip.TTL > 3",
                           "\ttrue\r\n and true ",
                           "tcp.Syn and !tcp.Ack",
                           "tcp.DstPort == 502 or udp.SrcPort < 9"}) {
    EXPECT_TRUE(Compiles(text)) << text;
  }
}

TEST(FilterSyntax, RefusesWhatTheLanguageRefuses) {
  for (const char* text : {"",
                           " ",
                           "()",
                           "(",
                           ")",
                           "(true",
                           "true)",
                           "true true",
                           "and",
                           "true and",
                           "or true",
                           "!(tcp)",
                           "not (tcp or udp)",
                           "!!tcp",
                           "not not tcp",
                           "TRUE",
                           "Outbound",
                           "OUTBOUND",
                           "TCP",
                           "tcp AND udp",
                           "tcp.dstport == 1",
                           "foo",
                           "ip.Dst",
                           "ip.DstAddr == ",
                           "ip.DstAddr == x",
                           "ip.DstAddr == 10.0.0.0/24",
                           "ip.DstAddr == 10.0.0",
                           "ip.DstAddr == 10.0.0.256",
                           "ip.DstAddr == 10.0.0.0.1",
                           "ip.DstAddr == 1..2.3",
                           "ip.DstAddr == 4294967296",
                           "5 == 5",
                           "ip.TTL == 0x",
                           "ip.TTL == 12ab",
                           "ip.TTL & 1",
                           "ip.TTL === 1",
                           "ip.TTL => 1",
                           "tcp | udp",
                           "packet == 1",
                           "packet[] == 1",
                           "packet[1 == 1",
                           "packet[x] == 1",
                           "tcp[0] == 1",
                           "(tcp ? true)",
                           "tcp ? true : false",
                           "(tcp ? true : )",
                           "true # comment",
                           "true;"}) {
    driver::FilterError error;
    EXPECT_FALSE(Filter::Compile(text, &error)) << text;
    EXPECT_STRNE(error.message, "") << text;
  }
}

TEST(FilterSyntax, SaysWhereItStopped) {
  driver::FilterError error;
  EXPECT_FALSE(Filter::Compile("outbound and nonsense", &error));
  EXPECT_EQ(error.position, 13U);
  EXPECT_FALSE(Filter::Compile("true $", &error));
  EXPECT_EQ(error.position, 5U);
}

TEST(FilterSyntax, RefusesATunnelFilterThatIsCutInsideItsParentheses) {
  const std::string whole = Clauses(kF2Head, 2, kF2Tail);
  ASSERT_TRUE(Compiles(whole));
  for (std::size_t bytes = whole.find('(') + 1; bytes < whole.size(); ++bytes) {
    EXPECT_FALSE(Compiles(whole.substr(0, bytes))) << bytes;
  }
}

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
  tcp[32] = 0xF0;  // more than there is
  EXPECT_TRUE(Matches("tcp.DstPort == 2", tcp));
  tcp[32] = 0x40;  // less than a header
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
                           "packet32[4] == 192.168.77.10",
                           "protocol == TCP",
                           "!ip.DF and !ip.MF"}) {
    EXPECT_TRUE(Matches(text, tcp)) << text;
  }
}

TEST(FilterMeaning, TheTunnelFiltersTakeWhatTheyName) {
  const std::string f1 = kF1Head + "(ip.DstAddr >= 192.168.77.0 and ip.DstAddr <= 192.168.77.255))";
  const std::string f2 =
      kF2Head + "(ip.DstAddr >= 192.168.77.0 and ip.DstAddr <= 192.168.77.255)" + kF2Tail;
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
