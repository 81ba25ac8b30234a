#include "driver/filter.h"

#include <gtest/gtest.h>

#include <functional>
#include <string>

#include "driver/filter_text.h"
#include "tests/driver_filters.h"

namespace {

using driver::Filter;
using filters::Compiles;
using filters::kF1Head;
using filters::kF2Head;
using filters::kF2Tail;

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

// Compiles and stays within the driver's limits.
bool Opens(const std::string& text) {
  const auto filter = Filter::Compile(text);
  return filter && filter->TestCount() <= driver::kMaxDriverTests;
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
                           "tcp.DstPort == 502 or udp.SrcPort < 9",
                           "!!tcp",
                           "not not not tcp",
                           "! not udp",
                           "ip.TTL == 4294967296",
                           "ip.TTL < 340282366920938463463374607431768211455",
                           "timestamp > 0xFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFF",
                           "(tcp? ip.TTL == 5 : false)",
                           "(tcp?true:false)"}) {
    EXPECT_TRUE(Compiles(text)) << text;
  }
}

constexpr const char* kInvalidFilters[] = {"",
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
                                           "!!(tcp)",
                                           "!",
                                           "not not",
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
                                           "ip.TTL == 340282366920938463463374607431768211456",
                                           "ip.TTL == 0x100000000000000000000000000000000",
                                           "ip.TTL == ::ffff:10.0.0.5",
                                           "ip.DstAddr == ::ffff:10.0.0.5",
                                           "localAddr == ::ffff:10.0.0.256",
                                           "(tcp? ip.TTL == 5: false)",
                                           "(tcp ? ip.TTL == 5:false)",
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
                                           "packet[-] == 1",
                                           "packet[5c] == 1",
                                           "packet[b] == 1",
                                           "packet[- 1] == 1",
                                           "packet[65536] == 1",
                                           "tcp[0] == 1",
                                           "(tcp ? true)",
                                           "tcp ? true : false",
                                           "(tcp ? true : )",
                                           "true # comment",
                                           "true;"};

TEST(FilterSyntax, RefusesInvalidFilters) {
  for (const char* text : kInvalidFilters) {
    driver::FilterError error;
    EXPECT_FALSE(Filter::Compile(text, &error)) << text;
    EXPECT_STRNE(error.message, "") << text;
  }
}

TEST(FilterSyntax, ReportsTheErrorsPosition) {
  driver::FilterError error;
  EXPECT_FALSE(Filter::Compile("outbound and nonsense", &error));
  EXPECT_EQ(error.position, 13U);
  EXPECT_FALSE(Filter::Compile("true $", &error));
  EXPECT_EQ(error.position, 5U);
  EXPECT_FALSE(Filter::Compile("ip and processId == 4", &error));
  EXPECT_EQ(error.position, 7U);
  EXPECT_STREQ(error.message, "Filter expression contains a bad token for layer");
}

TEST(FilterSyntax, RefusesATunnelFilterCutInsideItsParentheses) {
  const std::string whole = Clauses(kF2Head, 2, kF2Tail);
  ASSERT_TRUE(Compiles(whole));
  for (std::size_t bytes = whole.find('(') + 1; bytes < whole.size(); ++bytes) {
    EXPECT_FALSE(Compiles(whole.substr(0, bytes))) << bytes;
  }
}

}  // namespace
