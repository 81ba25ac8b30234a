#include "settings/settings.h"

#include <gtest/gtest.h>

#include <deque>
#include <random>
#include <set>

namespace settings {
namespace {

// The id made from these random numbers, and how many of them were used.
std::pair<std::wstring, std::size_t> Draw(std::deque<std::uint32_t> numbers) {
  const std::size_t given = numbers.size();
  std::wstring id = MakeEngineerId([&numbers] {
    const std::uint32_t next = numbers.at(0);
    numbers.pop_front();
    return next;
  });
  return {std::move(id), given - numbers.size()};
}

bool IsEngineerId(const std::wstring& id) {
  if (id.size() != 12 || !id.starts_with(L"ENG-") || id[4] == L'0') return false;
  return id.find_first_not_of(L"0123456789", 4) == std::wstring::npos;
}

TEST(MakeEngineerId, KeepsTheUpperHalfOfTheProduct) {
  EXPECT_EQ(Draw({0xFFFFFFFF}).first, L"ENG-99999999");
  EXPECT_EQ(Draw({0x80000001}).first, L"ENG-55000000");
  EXPECT_EQ(Draw({1}).first, L"ENG-10000000");
}

TEST(MakeEngineerId, RejectsDrawsThatWouldFavourSomeNumbers) {
  // 0 * 90000000 leaves a lower half of 0, under the limit of 64967296; 1 leaves 90000000.
  EXPECT_EQ(Draw({0, 0, 1}), std::pair(std::wstring(L"ENG-10000000"), std::size_t{3}));
  // 2^31 * 90000000 is a multiple of 2^32 as well.
  EXPECT_EQ(Draw({0x80000000, 1}).second, 2u);
}

// 90000000, and so every product, is a multiple of 128, and so is the limit. The lower halves
// nearest to it are therefore the limit itself, which is accepted, and 128 less, which is rejected.
TEST(MakeEngineerId, AcceptsTheLimitAndNothingBelow) {
  constexpr std::uint32_t kLimit = 64967296;
  const auto numberWithLowerHalf = [](std::uint32_t wanted) {
    // 90000000 = 2^7 * 703125; 15941821 is the inverse of the odd part modulo 2^25.
    const std::uint32_t number = (wanted >> 7) * 15941821u & 0x1FFFFFF;
    EXPECT_EQ(number * 90000000u, wanted);
    return number;
  };
  EXPECT_EQ(Draw({numberWithLowerHalf(kLimit), 1}).second, 1u);
  EXPECT_EQ(Draw({numberWithLowerHalf(kLimit + 128), 1}).second, 1u);
  EXPECT_EQ(Draw({numberWithLowerHalf(kLimit - 128), 1}).second, 2u);
}

// Compares with the rule written out in full, on a generator with a fixed seed.
TEST(MakeEngineerId, FollowsTheGeneratorExactly) {
  std::mt19937 ours(5489);
  std::mt19937 theirs(5489);
  for (int round = 0; round < 1000; ++round) {
    std::uint64_t product = 0;
    do {
      product = static_cast<std::uint64_t>(theirs()) * 90000000u;
    } while ((product & 0xFFFFFFFFu) < 64967296u);
    EXPECT_EQ(MakeEngineerId([&ours] { return static_cast<std::uint32_t>(ours()); }),
              L"ENG-" + std::to_wstring(10000000u + (product >> 32)));
  }
}

TEST(MakeEngineerId, HasEightDigitsThatDifferEachTime) {
  std::set<std::wstring> seen;
  for (int i = 0; i < 50; ++i) {
    const std::wstring id = MakeEngineerId();
    EXPECT_TRUE(IsEngineerId(id)) << id;
    seen.insert(id);
  }
  EXPECT_GT(seen.size(), 45u);  // fifty of ninety million hardly ever collide
}

}  // namespace
}  // namespace settings
