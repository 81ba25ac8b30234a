#include "tunnel/packets/flow_tables.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <map>

#include "tunnel/packets/test_random.h"

namespace tunnel {
namespace {

constexpr std::uint32_t kCount = 20000;

// Fills a tree and a std::map with the same flows and compares them at every power of two.
void CompareWithMap(const std::function<FlowKey(std::uint32_t)>& keyOf) {
  FlowTree tree;
  std::map<FlowKey, FlowEntry> map;
  std::uint32_t next = 1;
  for (std::uint32_t index = 0; index < kCount; ++index) {
    const FlowEntry entry{index, index + 1, index + 2, index + 3};
    tree.Set(keyOf(index), entry);
    map[keyOf(index)] = entry;
    ASSERT_EQ(tree.Size(), map.size());
    if (index + 1 < next && index + 1 < kCount) continue;
    next *= 2;
    for (const auto& [key, expected] : map) {
      const FlowEntry* const found = tree.Find(key);
      ASSERT_NE(found, nullptr) << "of " << map.size();
      ASSERT_EQ(*found, expected);
      FlowKey beside = key;
      ++beside.destinationPort;
      ASSERT_EQ(tree.Find(beside) != nullptr, map.contains(beside));
    }
  }
}

FlowKey NumberedKey(std::uint32_t number) {
  return {17, 0x0A630007, static_cast<std::uint16_t>(number), number * 3, 502};
}

TEST(FlowTree, MatchesAMapInAnyInsertionOrder) {
  CompareWithMap(NumberedKey);
  CompareWithMap([](std::uint32_t index) { return NumberedKey(kCount - index); });
  CompareWithMap([](std::uint32_t index) { return NumberedKey(index % 700); });
  CompareWithMap([](std::uint32_t index) { return NumberedKey(index * 2654435761U); });
  // Two interleaved ascending sequences, like the ports of TCP and UDP.
  CompareWithMap([](std::uint32_t index) {
    FlowKey key = NumberedKey(index / 2);
    key.protocol = index % 2 == 0 ? 6 : 17;
    return key;
  });
}

TEST(FlowTree, HoldsKeysThatDifferInOneFieldOnly) {
  Random random(11);
  std::vector<FlowKey> keys;
  for (std::uint32_t index = 0; index < 600; ++index) {
    FlowKey key{6, 0x80000000, 0x8000, 0x80000000, 0x8000};
    switch (index % 5) {
      case 0:
        key.protocol = static_cast<std::uint8_t>(random());
        break;
      case 1:
        key.source = random();
        break;
      case 2:
        key.sourcePort = static_cast<std::uint16_t>(random());
        break;
      case 3:
        key.destination = random();
        break;
      default:
        key.destinationPort = static_cast<std::uint16_t>(random());
        break;
    }
    keys.push_back(key);
  }
  CompareWithMap([&](std::uint32_t index) { return keys[index % keys.size()]; });
}

TEST(FlowTree, FindsNothingWhenEmptyOrCleared) {
  FlowTree tree;
  EXPECT_EQ(tree.Find(NumberedKey(1)), nullptr);
  for (std::uint32_t index = 0; index < 5000; ++index) tree.Set(NumberedKey(index), {});
  tree.Clear();
  EXPECT_EQ(tree.Size(), 0U);
  EXPECT_EQ(tree.Find(NumberedKey(1)), nullptr);
  tree.Set(NumberedKey(2), {1, 2, 3, 4});
  EXPECT_EQ(*tree.Find(NumberedKey(2)), (FlowEntry{1, 2, 3, 4}));
}

TEST(FlowTree, OrdersKeysFieldByField) {
  const FlowKey key{6, 1, 2, 3, 4};
  EXPECT_LT(key, (FlowKey{17, 0, 0, 0, 0}));
  EXPECT_LT(key, (FlowKey{6, 2, 0, 0, 0}));
  EXPECT_LT(key, (FlowKey{6, 1, 3, 0, 0}));
  EXPECT_LT(key, (FlowKey{6, 1, 2, 4, 0}));
  EXPECT_LT(key, (FlowKey{6, 1, 2, 3, 5}));
  EXPECT_EQ(key, (FlowKey{6, 1, 2, 3, 4}));
}

}  // namespace
}  // namespace tunnel
