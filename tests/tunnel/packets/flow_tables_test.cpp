#include "tunnel/packets/flow_tables.h"

#include <gtest/gtest.h>

#include "tunnel/packets/test_random.h"

namespace tunnel {
namespace {

TEST(FlowTables, OrdersBroadcastsFieldByField) {
  EXPECT_LT((BroadcastKey{1, 24, 9, 9}), (BroadcastKey{1, 25, 0, 0}));
}

TEST(FlowTables, KeepsTheLatestEntryOfAFlow) {
  FlowTables tables;
  const FlowKey key{6, 1, 2, 3, 4};
  EXPECT_EQ(tables.FindFlow(key), nullptr);
  tables.RecordFlow(key, {10, 20, 30, 40});
  tables.RecordFlow(key, {11, 21, 31, 41});
  ASSERT_NE(tables.FindFlow(key), nullptr);
  EXPECT_EQ(*tables.FindFlow(key), (FlowEntry{11, 21, 31, 41}));
  EXPECT_EQ(tables.FlowCount(), 1U);
  EXPECT_EQ(tables.FindFlow({6, 1, 2, 3, 5}), nullptr);
  EXPECT_EQ(tables.FindFlow({17, 1, 2, 3, 4}), nullptr);
}

TEST(FlowTables, FindsTheBroadcastThatAnAnswerBelongsTo) {
  FlowTables tables;
  tables.RecordBroadcast({0x0A000000, 24, 34964, 40000}, {1, 0, 0, 0});
  tables.RecordBroadcast({0x0A000000, 16, 34964, 40000}, {2, 0, 0, 0});
  tables.RecordBroadcast({0xC0A80100, 24, 34964, 40001}, {3, 0, 0, 0});

  // Both networks of 10.0.0.9 match; the /16 comes first in the table.
  ASSERT_NE(tables.FindBroadcast(0x0A000009, 34964, 40000), nullptr);
  EXPECT_EQ(tables.FindBroadcast(0x0A000009, 34964, 40000)->localSource, 2U);
  ASSERT_NE(tables.FindBroadcast(0xC0A80109, 34964, 40001), nullptr);
  EXPECT_EQ(tables.FindBroadcast(0xC0A80109, 34964, 40001)->localSource, 3U);
  EXPECT_EQ(tables.FindBroadcast(0xC0A80109, 34964, 40000), nullptr);
  EXPECT_EQ(tables.FindBroadcast(0xC0A80109, 34965, 40001), nullptr);
  EXPECT_EQ(tables.FindBroadcast(0xC0A80209, 34964, 40001), nullptr);
}

TEST(FlowTables, FindsTheSameAsALinearSearch) {
  Random random(5);
  for (int round = 0; round < 300; ++round) {
    FlowTables tables;
    std::map<BroadcastKey, BroadcastEntry> all;
    for (std::uint32_t index = 0; index < 30; ++index) {
      const std::uint32_t prefix = 28 + random() % 5;
      const BroadcastKey key{(0x0A000000 + random() % 32) & MaskOf(prefix), prefix,
                             static_cast<std::uint16_t>(0xFFFE + random() % 2),
                             static_cast<std::uint16_t>(0xFFFE + random() % 2)};
      tables.RecordBroadcast(key, {index, 0, 0, 0});
      all[key] = {index, 0, 0, 0};
    }
    for (std::uint32_t source = 0x0A000000; source < 0x0A000022; ++source) {
      const BroadcastEntry* expected = nullptr;
      for (const auto& [key, entry] : all) {
        if (expected == nullptr && key.destinationPort == 0xFFFF && key.sourcePort == 0xFFFE &&
            Contains({key.realNetwork, key.realPrefix}, source)) {
          expected = &entry;
        }
      }
      const BroadcastEntry* found = tables.FindBroadcast(source, 0xFFFF, 0xFFFE);
      ASSERT_EQ(found == nullptr, expected == nullptr);
      if (found != nullptr) {
        ASSERT_EQ(*found, *expected);
      }
    }
  }
}

TEST(FlowTables, ForgetsEverythingWhenCleared) {
  FlowTables tables;
  tables.RecordFlow({6, 1, 2, 3, 4}, {});
  tables.RecordBroadcast({0, 0, 1, 2}, {});
  tables.Clear();
  EXPECT_EQ(tables.FlowCount(), 0U);
  EXPECT_EQ(tables.BroadcastCount(), 0U);
  EXPECT_EQ(tables.FindBroadcast(1, 1, 2), nullptr);
}

}  // namespace
}  // namespace tunnel
