#include <arpa/inet.h>
#include <gtest/gtest.h>

#include <random>

#include "text/ipv4_text.h"

namespace text {
namespace {

// Near misses of dotted quads, so that both results are frequent.
std::string RandomText(std::mt19937& random) {
  std::string value;
  for (int part = 0; part < 4; ++part) {
    if (part > 0) value += '.';
    value += std::to_string(random() % 300);
  }
  constexpr char kUnits[] = "0123456789..  -+x";
  for (auto edits = random() % 3; edits > 0; --edits) {
    const std::size_t at = random() % value.size();
    if (random() % 2 == 0) {
      value[at] = kUnits[random() % (sizeof(kUnits) - 1)];
    } else {
      value.insert(at, 1, kUnits[random() % (sizeof(kUnits) - 1)]);
    }
  }
  return value;
}

TEST(Ipv4Text, AgreesWithTheSystemsParser) {
  std::mt19937 random(2);
  int accepted = 0;
  for (int round = 0; round < 50000; ++round) {
    const std::string value = RandomText(random);
    in_addr system{};
    const bool isAccepted = ::inet_pton(AF_INET, value.c_str(), &system) == 1;
    const auto ours = ParseIpv4(std::wstring(value.begin(), value.end()));
    ASSERT_EQ(ours.has_value(), isAccepted) << value;
    if (isAccepted) {
      ASSERT_EQ(*ours, ntohl(system.s_addr)) << value;
    }
    accepted += isAccepted;
  }
  EXPECT_GT(accepted, 1000);
}

}  // namespace
}  // namespace text
