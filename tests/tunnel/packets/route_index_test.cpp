#include "tunnel/packets/routes.h"

#include <gtest/gtest.h>

#include "tunnel/packets/test_random.h"

namespace tunnel {
namespace {

TEST(RouteIndex, TakesTheLongestPrefixAndTheEarlierOnATie) {
  const RouteMapping wide{0x0A000000, 8, 0x0A000000, 8, false};
  const RouteMapping narrow{0x0A000500, 24, 0x0A000500, 24, false};
  const RouteMapping twin{0xC0A80100, 24, 0x0A000500, 24, true};
  const RouteIndex index({wide, narrow, twin});
  EXPECT_EQ(index.Find(0x0A000501), &index.Mappings()[1]);
  EXPECT_EQ(index.Find(0x0A000601), &index.Mappings()[0]);
  EXPECT_EQ(index.Find(0x0B000000), nullptr);
  EXPECT_EQ(RouteIndex().Find(0x0A000501), nullptr);
}

TEST(RouteIndex, UsesTheMappedNetwork) {
  const RouteIndex index(
      {{0x0A000000, 16, 0x0A000000, 16, false}, {0x0A000500, 24, 0xAC1F0000, 24, true}});
  EXPECT_EQ(index.Find(0x0A000501), &index.Mappings()[0]);
  EXPECT_EQ(index.Find(0xAC1F0001), &index.Mappings()[1]);
}

TEST(RouteIndex, TheWidestAndTheNarrowestRouteAreFound) {
  const RouteIndex index({{0, 0, 0, 0, false}, {0xFFFFFFFF, 32, 0xFFFFFFFF, 32, false}});
  EXPECT_EQ(index.Find(0), &index.Mappings()[0]);
  EXPECT_EQ(index.Find(0xFFFFFFFE), &index.Mappings()[0]);
  EXPECT_EQ(index.Find(0xFFFFFFFF), &index.Mappings()[1]);
}

// A literal implementation of the rule.
const RouteMapping* SearchLinearly(const std::vector<RouteMapping>& mappings,
                                   std::uint32_t address) {
  const RouteMapping* best = nullptr;
  for (const RouteMapping& mapping : mappings) {
    if (!Contains(mapping.Mapped(), address)) continue;
    if (best == nullptr || mapping.mappedPrefix > best->mappedPrefix) best = &mapping;
  }
  return best;
}

TEST(RouteIndex, FindsTheSameAsALinearSearch) {
  Random random(3);
  for (int round = 0; round < 200; ++round) {
    std::vector<RouteMapping> mappings;
    const std::uint32_t count = random() % 300;
    for (std::uint32_t i = 0; i < count; ++i) {
      const std::uint32_t prefix = 20 + random() % 13;
      const std::uint32_t mapped = (0x0A000000 + random() % 8192) & MaskOf(prefix);
      mappings.push_back({random(), prefix, mapped, prefix, true});
    }
    const RouteIndex index(mappings);
    ASSERT_EQ(index.Mappings(), mappings);
    for (int probe = 0; probe < 500; ++probe) {
      const std::uint32_t address = 0x0A000000 + random() % 9000;
      const RouteMapping* const expected = SearchLinearly(index.Mappings(), address);
      ASSERT_EQ(index.Find(address), expected);
    }
  }
}

}  // namespace
}  // namespace tunnel
