#include <arpa/inet.h>
#include <gtest/gtest.h>

#include "tunnel/ipv4.h"

#include "tunnel/test_random.h"

namespace tunnel {
namespace {

// Near misses of dotted quads, so that both answers come up often.
std::string RandomText(Random& random) {
  std::string text;
  for (int part = 0; part < 4; ++part) {
    if (part > 0) text += '.';
    text += std::to_string(random() % 300);
  }
  constexpr char kUnits[] = "0123456789..  -+x";
  for (unsigned edits = random() % 3; edits > 0; --edits) {
    const std::size_t at = random() % text.size();
    if (random() % 2 == 0) {
      text[at] = kUnits[random() % (sizeof(kUnits) - 1)];
    } else {
      text.insert(at, 1, kUnits[random() % (sizeof(kUnits) - 1)]);
    }
  }
  return text;
}

TEST(Ipv4, AgreesWithTheSystemsParser) {
  Random random(2);
  int accepted = 0;
  for (int round = 0; round < 50000; ++round) {
    const std::string text = RandomText(random);
    in_addr system{};
    const bool isAccepted = ::inet_pton(AF_INET, text.c_str(), &system) == 1;
    const auto ours = ParseIpv4(std::wstring(text.begin(), text.end()));
    ASSERT_EQ(ours.has_value(), isAccepted) << text;
    if (isAccepted) {
      ASSERT_EQ(*ours, ntohl(system.s_addr)) << text;
    }
    accepted += isAccepted;
  }
  EXPECT_GT(accepted, 1000);
}

}  // namespace
}  // namespace tunnel
