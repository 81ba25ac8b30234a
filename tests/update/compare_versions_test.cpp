#include "update/versions.h"

#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

namespace update {
namespace {

int Sign(int value) {
  return (value > 0) - (value < 0);
}

struct Row {
  const wchar_t* a;
  const wchar_t* b;
  int wanted;
};

constexpr Row kRows[] = {
    // Numbers, not text.
    {L"1.0.10", L"1.0.4", 1},
    {L"1.0.4", L"1.0.4", 0},
    {L"1.0.3", L"1.0.4", -1},
    {L"1.0.5", L"1.0.4", 1},
    {L"2", L"1.9.9", 1},
    {L"10", L"9", 1},
    {L"1.1", L"1.0.99", 1},
    {L"01.00.05", L"1.0.4", 1},
    // The first position that differs decides.
    {L"1.2.0", L"1.1.9", 1},
    {L"0.9.9.9", L"1", -1},
    // Any other character separates, even a sign.
    {L"release 2.1-rc3", L"2,1/2", 1},
    {L"release 2.1-rc3", L"2.1.4", -1},
    {L"1.-5", L"1.4", 1},
    {L"1..0..5", L"1.0.4", 1},
    {L"版本1点0点5", L"1.0.4", 1},
    // A missing number is 0; for equal lists the texts decide.
    {L"1.0.4.0", L"1.0.4", 1},
    {L"1.0.4.1", L"1.0.4", 1},
    {L"1.0.4b", L"1.0.4", 1},
    {L"1.0.4B", L"1.0.4b", 0},
    {L"1.0.4-RC", L"1.0.4-rc", 0},
    {L"1.0.4-a", L"1.0.4-B", -1},
    {L"V1.0.4", L"v1.0.4", 0},
    {L"v1.0.4", L"1.0.4", 1},
    {L"1.0.4_", L"1.0.4A", -1},
    {L"01.0.4", L"1.0.4", -1},
    {L"1.0.4\x00C9", L"1.0.4\x00E9", 0},
    // Without numbers.
    {L"", L"", 0},
    {L"", L"0", -1},
    {L"", L"1", -1},
    {L"abc", L"ABC", 0},
    {L"abc", L"0.0.1", -1},
    // Digits of other scripts do not count.
    {L"\xFF12", L"1", -1},
    {L"\x0662.0", L"1", -1},
    {L"1.0.\x00B2", L"1.0.1", -1},
    {L"\xD835\xDFD7", L"1", -1},
    // 32 bits, and beyond.
    {L"2147483647", L"2147483646", 1},
    {L"2147483648", L"2147483647", 1},  // the same number; the texts decide
    {L"4294967296", L"1", 1},
    {L"9999999999", L"2147483648", 1},
    {L"99999999999999999999999999999999", L"2147483646", 1},
    {L"18446744073709551617", L"2", 1},
    {L"2147483649.0", L"2147483648.1", -1},
    {L"00000000000000000000000000000000005", L"4", 1},
};

TEST(CompareVersions, OrdersEveryRowBothWays) {
  for (const Row& row : kRows) {
    EXPECT_EQ(Sign(CompareVersions(row.a, row.b)), row.wanted)
        << testing::PrintToString(std::wstring(row.a)) << " "
        << testing::PrintToString(std::wstring(row.b));
    EXPECT_EQ(Sign(CompareVersions(row.b, row.a)), -row.wanted)
        << testing::PrintToString(std::wstring(row.b)) << " "
        << testing::PrintToString(std::wstring(row.a));
  }
}

// Texts of few different characters, so that equal lists, numbers and letters are frequent.
class RandomVersions {
 public:
  std::wstring Next() {
    static const std::wstring kUnits = L"001249..-aAbB_\x00E9\x00C9\xFF11\xD83D\xDE00 ";
    static const std::wstring kNumbers[] = {L"2147483647", L"2147483648", L"4294967296",
                                            L"99999999999999999999"};
    std::wstring text;
    const std::size_t length = Below(8);
    for (std::size_t i = 0; i < length; ++i) {
      if (Below(12) == 0) {
        text += kNumbers[Below(std::size(kNumbers))];
      } else {
        text += kUnits[Below(kUnits.size())];
      }
    }
    return text;
  }

 private:
  std::size_t Below(std::size_t bound) {
    return std::uniform_int_distribution<std::size_t>(0, bound - 1)(random_);
  }

  std::mt19937 random_{20261121};
};

TEST(CompareVersions, IsATotalOrderOverRandomTexts) {
  RandomVersions versions;
  int ties = 0;
  int chains = 0;
  for (int round = 0; round < 50000; ++round) {
    const std::wstring a = versions.Next();
    const std::wstring b = versions.Next();
    const std::wstring c = versions.Next();
    const int ab = Sign(CompareVersions(a, b));
    const int bc = Sign(CompareVersions(b, c));
    const int ac = Sign(CompareVersions(a, c));
    ASSERT_EQ(CompareVersions(a, a), 0) << testing::PrintToString(a);
    ASSERT_EQ(ab, -Sign(CompareVersions(b, a)))
        << testing::PrintToString(a) << " " << testing::PrintToString(b);
    if (ab <= 0 && bc <= 0) {
      ASSERT_LE(ac, 0) << testing::PrintToString(a) << " " << testing::PrintToString(b) << " "
                       << testing::PrintToString(c);
      if (ab == 0 && bc == 0) {
        ASSERT_EQ(ac, 0);
      }
      ++chains;
    }
    if (ab == 0) ++ties;
  }
  EXPECT_GT(ties, 500) << "the texts are too different to show anything";
  EXPECT_GT(chains, 5000);
}

// The rule in its simplest form, as a reference.
int Plainly(const std::vector<int>& a, const std::vector<int>& b) {
  for (std::size_t i = 0; i < std::max(a.size(), b.size()); ++i) {
    const int left = i < a.size() ? a[i] : 0;
    const int right = i < b.size() ? b[i] : 0;
    if (left != right) return left < right ? -1 : 1;
  }
  return 0;
}

TEST(CompareVersions, OrdersRandomListsOfNumbersAsNumbers) {
  std::mt19937 random(7);
  std::uniform_int_distribution<int> length(1, 5);
  std::uniform_int_distribution<int> number(0, 12);
  const auto makeList = [&] {
    std::vector<int> list(static_cast<std::size_t>(length(random)));
    for (int& one : list) one = number(random);
    return list;
  };
  const auto written = [](const std::vector<int>& list) {
    std::wstring text = L"v";
    for (const int one : list) text += std::to_wstring(one) + L".";
    return text;
  };
  for (int round = 0; round < 20000; ++round) {
    const std::vector<int> a = makeList();
    const std::vector<int> b = makeList();
    const int wanted = Plainly(a, b);
    if (wanted == 0) continue;  // then the texts decide
    ASSERT_EQ(Sign(CompareVersions(written(a), written(b))), wanted)
        << testing::PrintToString(written(a)) << " " << testing::PrintToString(written(b));
  }
}

}  // namespace
}  // namespace update
