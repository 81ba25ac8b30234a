#include "tunnel/packets/routes.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <stdexcept>

#include "tunnel/packets/test_random.h"

namespace tunnel {
namespace {

constexpr char kNoSpace[] = "No available NAT mapping network was found in 172.31.0.0/16.";

std::vector<Ipv4Network> Networks(std::initializer_list<std::wstring> texts) {
  return ParseRoutes(std::vector<std::wstring>(texts));
}

// The mappings as text: "10.1.0.0/16", or "10.1.2.0/24 as 172.31.0.0/24".
std::vector<std::wstring> Mapped(std::initializer_list<std::wstring> routes,
                                 std::initializer_list<std::wstring> locals = {}) {
  std::vector<std::wstring> texts;
  for (const RouteMapping& mapping : BuildRouteMappings(Networks(routes), Networks(locals))) {
    std::wstring text = FormatNetwork(mapping.Real());
    if (mapping.isNat) text += L" as " + FormatNetwork(mapping.Mapped());
    texts.push_back(text);
  }
  return texts;
}

using Texts = std::vector<std::wstring>;

std::string FailureOf(std::initializer_list<std::wstring> routes,
                      std::initializer_list<std::wstring> locals) {
  try {
    Mapped(routes, locals);
  } catch (const std::runtime_error& error) {
    return error.what();
  }
  return "no failure";
}

TEST(ParseRoutes, ReadsEachTextOrDropsIt) {
  struct {
    const wchar_t* text;
    const wchar_t* network;  // nullptr: dropped
  } const rows[] = {
      {L"192.168.1.0/24", L"192.168.1.0/24"},
      {L"192.168.1.5/24", L"192.168.1.0/24"},
      {L" \t192.168.1.0/24\r\n\x3000", L"192.168.1.0/24"},
      {L"192.168.1.5/32", L"192.168.1.5/32"},
      {L"10.0.0.0/24abc", L"10.0.0.0/24"},
      {L"10.0.0.0/x", L"0.0.0.0/0"},
      {L"10.0.0.0/", L"0.0.0.0/0"},
      {L"10.0.0.0/ 8", L"10.0.0.0/8"},
      {L"10.0.0.0/+8", L"10.0.0.0/8"},
      {L"10.0.0.0/-0", L"0.0.0.0/0"},
      {L"10.0.0.0/- 8", L"0.0.0.0/0"},
      {L"10.0.0.0/024", L"10.0.0.0/24"},
      {L"10.0.0.0/8/24", L"10.0.0.0/8"},
      {L"10.0.0.0/-1", nullptr},
      {L"10.0.0.0/33", nullptr},
      {L"10.0.0.0/4294967304", nullptr},
      {L"10.0.0.0/99999999999999999999999", nullptr},
      {L"", nullptr},
      {L"  ", nullptr},
      {L"192.168.1.5", nullptr},
      {L"10.0.0.0 /8", nullptr},
      {L"/8", nullptr},
      {L"plc.local/24", nullptr},
      {L"fe80::/10", nullptr},
      {L"10.0.0/8", nullptr},
      {L"ALL", nullptr},
  };
  for (const auto& row : rows) {
    const std::vector<Ipv4Network> routes = ParseRoutes(std::vector<std::wstring>{row.text});
    if (row.network == nullptr) {
      EXPECT_TRUE(routes.empty()) << row.text;
    } else {
      ASSERT_EQ(routes.size(), 1U) << row.text;
      EXPECT_EQ(FormatNetwork(routes[0]), row.network) << row.text;
    }
  }
}

TEST(ParseRoutes, KeepsOrderAndDropsOnlyWhatItCannotRead) {
  const auto routes = Networks({L"10.2.0.0/16", L"bad", L"10.1.0.0/16", L"10.2.0.0/16"});
  EXPECT_EQ(routes,
            (std::vector<Ipv4Network>{{0x0A020000, 16}, {0x0A010000, 16}, {0x0A020000, 16}}));
}

TEST(BuildRouteMappings, LeavesRoutesWithoutOverlapDirect) {
  EXPECT_EQ(Mapped({L"10.1.0.0/16"}, {L"192.168.1.0/24"}), (Texts{L"10.1.0.0/16"}));
}

TEST(BuildRouteMappings, MapsRouteNestedInAnother) {
  EXPECT_EQ(Mapped({L"10.1.0.0/16", L"10.1.2.0/24"}, {L"192.168.1.0/24"}),
            (Texts{L"10.1.0.0/16", L"10.1.2.0/24 as 172.31.0.0/24"}));
}

TEST(BuildRouteMappings, MapsRoutesThatTouchTheComputersNetworks) {
  EXPECT_EQ(Mapped({L"192.168.1.0/24", L"192.168.2.0/24"}, {L"192.168.1.0/24", L"192.168.2.0/24"}),
            (Texts{L"192.168.1.0/24 as 172.31.0.0/24", L"192.168.2.0/24 as 172.31.1.0/24"}));
}

TEST(BuildRouteMappings, GivesRepeatedRouteANetworkOfItsOwn) {
  EXPECT_EQ(Mapped({L"10.0.0.0/24", L"10.0.0.0/24"}),
            (Texts{L"10.0.0.0/24", L"10.0.0.0/24 as 172.31.0.0/24"}));
}

TEST(BuildRouteMappings, DoesNotDependOnInputOrder) {
  const Texts expected{L"10.1.0.0/16", L"10.1.0.0/24 as 172.31.0.0/24",
                       L"10.1.2.0/24 as 172.31.1.0/24", L"10.2.0.0/16"};
  EXPECT_EQ(Mapped({L"10.2.0.0/16", L"10.1.2.0/24", L"10.1.0.0/24", L"10.1.0.0/16"}), expected);
  EXPECT_EQ(Mapped({L"10.1.0.0/16", L"10.1.0.0/24", L"10.1.2.0/24", L"10.2.0.0/16"}), expected);
}

TEST(BuildRouteMappings, GivesASlash16TheWholeSpaceAndNothingMore) {
  EXPECT_EQ(Mapped({L"10.1.0.0/16"}, {L"10.1.2.0/24"}), (Texts{L"10.1.0.0/16 as 172.31.0.0/16"}));
  EXPECT_EQ(FailureOf({L"10.1.0.0/16", L"10.2.0.0/32"}, {L"10.1.2.0/24", L"10.2.0.0/24"}),
            kNoSpace);
}

TEST(BuildRouteMappings, RefusesCollidingRouteWiderThanTheSpace) {
  EXPECT_EQ(FailureOf({L"10.0.0.0/15"}, {L"10.1.2.0/24"}), kNoSpace);
  EXPECT_EQ(FailureOf({L"0.0.0.0/0"}, {L"10.1.2.0/24"}), kNoSpace);
  EXPECT_EQ(FailureOf({L"0.0.0.0/1"}, {L"10.1.2.0/24"}), kNoSpace);
  EXPECT_EQ(Mapped({L"0.0.0.0/0"}), (Texts{L"0.0.0.0/0"}));
}

TEST(BuildRouteMappings, MapsSingleHostToSingleAddress) {
  EXPECT_EQ(Mapped({L"10.1.2.3/32"}, {L"10.1.2.0/24"}), (Texts{L"10.1.2.3/32 as 172.31.0.0/32"}));
}

TEST(BuildRouteMappings, SkipsTakenBlocksInTheSpace) {
  EXPECT_EQ(Mapped({L"10.1.2.0/24"}, {L"10.1.2.0/24", L"172.31.0.77/32"}),
            (Texts{L"10.1.2.0/24 as 172.31.1.0/24"}));
  // The /32 comes first, so the /25 takes the first aligned half that is free.
  EXPECT_EQ(Mapped({L"10.1.2.3/32", L"10.1.3.0/25"}, {L"10.1.0.0/16"}),
            (Texts{L"10.1.2.3/32 as 172.31.0.0/32", L"10.1.3.0/25 as 172.31.0.128/25"}));
}

TEST(BuildRouteMappings, MapsRouteInsideTheSpaceThatMeetsASubstitute) {
  EXPECT_EQ(Mapped({L"10.1.2.0/24", L"172.31.0.0/24"}, {L"10.1.2.0/24"}),
            (Texts{L"10.1.2.0/24 as 172.31.0.0/24", L"172.31.0.0/24 as 172.31.1.0/24"}));
}

TEST(BuildRouteMappings, FillsTheSpaceToItsLastBlock) {
  const std::vector<Ipv4Network> locals = Networks({L"10.1.0.0/16"});
  std::vector<Ipv4Network> routes(256, Ipv4Network{0x0A010200, 24});
  const std::vector<RouteMapping> mappings = BuildRouteMappings(routes, locals);
  ASSERT_EQ(mappings.size(), 256U);
  EXPECT_EQ(FormatNetwork(mappings.back().Mapped()), L"172.31.255.0/24");
  routes.push_back(routes.back());
  EXPECT_THROW(BuildRouteMappings(routes, locals), std::runtime_error);
}

TEST(BuildRouteMappings, IsFastWithManyRoutes) {
  const std::vector<Ipv4Network> routes(65536, Ipv4Network{0x0A010203, 32});
  const std::vector<RouteMapping> mappings = BuildRouteMappings(routes, Networks({L"10.1.0.0/16"}));
  EXPECT_EQ(FormatNetwork(mappings.back().Mapped()), L"172.31.255.255/32");
}

// The reference allocation: tries every candidate in order.
std::optional<Ipv4Network> SearchSubstitute(std::uint32_t prefix,
                                            const std::vector<Ipv4Network>& taken) {
  if (prefix == 0) return std::nullopt;
  const std::uint64_t size = std::uint64_t{1} << (32 - prefix);
  for (std::uint64_t at = 0xAC1F0000; at <= 0xAC1FFFFF; at += size) {
    const Ipv4Network block{static_cast<std::uint32_t>(at) & MaskOf(prefix), prefix};
    if ((block.network & 0xFFFF0000) != 0xAC1F0000) return std::nullopt;
    if (LastAddress(block) > 0xAC1FFFFF) return std::nullopt;
    if (std::ranges::none_of(taken, [&](const auto& other) { return Overlaps(block, other); })) {
      return block;
    }
  }
  return std::nullopt;
}

std::optional<std::vector<RouteMapping>> WalkForMappings(std::vector<Ipv4Network> routes,
                                                         std::vector<Ipv4Network> taken) {
  std::ranges::sort(routes, {},
                    [](const auto& route) { return std::pair(route.network, route.prefix); });
  std::vector<RouteMapping> mappings;
  for (const Ipv4Network& route : routes) {
    Ipv4Network mapped = route;
    const bool isNat =
        std::ranges::any_of(taken, [&](const auto& other) { return Overlaps(route, other); });
    if (isNat) {
      const auto substitute = SearchSubstitute(route.prefix, taken);
      if (!substitute) return std::nullopt;
      mapped = *substitute;
    }
    taken.push_back(mapped);
    mappings.push_back({route.network, route.prefix, mapped.network, mapped.prefix, isNat});
  }
  return mappings;
}

// Random networks close to the NAT space and one site, so that they often overlap.
std::vector<Ipv4Network> RandomNetworks(Random& random, std::size_t most) {
  std::vector<Ipv4Network> networks;
  for (std::size_t count = random() % (most + 1); count > 0; --count) {
    const std::uint32_t base = random() % 2 == 0 ? 0xAC1F0000 : 0x0A010000;
    const std::uint32_t prefix = random() % 8 == 0 ? random() % 33 : 17 + random() % 16;
    const std::uint32_t address = base + random() % 0x10000;
    networks.push_back({address & MaskOf(prefix), prefix});
  }
  return networks;
}

TEST(BuildRouteMappings, NeverOverlapsAndTakesTheFirstFreeBlock) {
  Random random(3);
  int mapped = 0;
  for (int round = 0; round < 3000; ++round) {
    const auto routes = RandomNetworks(random, 20);
    const auto locals = RandomNetworks(random, 3);
    const auto expected = WalkForMappings(routes, locals);
    if (!expected) {
      EXPECT_THROW(BuildRouteMappings(routes, locals), std::runtime_error);
      continue;
    }
    const auto mappings = BuildRouteMappings(routes, locals);
    ASSERT_EQ(mappings, *expected);
    for (std::size_t a = 0; a < mappings.size(); ++a) {
      for (std::size_t b = a + 1; b < mappings.size(); ++b) {
        ASSERT_FALSE(Overlaps(mappings[a].Mapped(), mappings[b].Mapped()));
      }
      for (const Ipv4Network& local : locals) {
        ASSERT_FALSE(Overlaps(mappings[a].Mapped(), local));
      }
      mapped += mappings[a].isNat;
    }
  }
  EXPECT_GT(mapped, 1000);
}

TEST(DescribeRoutes, HasOneLinePerMapping) {
  const auto mappings = BuildRouteMappings(Networks({L"192.168.1.0/24", L"10.0.0.0/16"}),
                                           Networks({L"192.168.1.0/24"}));
  EXPECT_EQ(DescribeRoutes(mappings),
            L"直连网段 10.0.0.0/16\r\nNAT模式IP 172.31.0.0/24 -> 现场真实 192.168.1.0/24");
  EXPECT_EQ(DescribeRoutes({}), L"");
}

}  // namespace
}  // namespace tunnel
