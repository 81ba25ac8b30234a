#include "tunnel/packets/ipv4.h"

#include <gtest/gtest.h>

namespace tunnel {
namespace {

TEST(Ipv4, MaskHasAsManyOnesAsThePrefix) {
  EXPECT_EQ(MaskOf(0), 0U);
  EXPECT_EQ(MaskOf(1), 0x80000000U);
  EXPECT_EQ(MaskOf(24), 0xFFFFFF00U);
  EXPECT_EQ(MaskOf(31), 0xFFFFFFFEU);
  EXPECT_EQ(MaskOf(32), 0xFFFFFFFFU);
}

TEST(Ipv4, NetworkEndsAreInclusive) {
  const Ipv4Network network{0xC0A80100, 24};
  EXPECT_EQ(FirstAddress(network), 0xC0A80100U);
  EXPECT_EQ(LastAddress(network), 0xC0A801FFU);
  EXPECT_TRUE(Contains(network, 0xC0A80100));
  EXPECT_TRUE(Contains(network, 0xC0A801FF));
  EXPECT_FALSE(Contains(network, 0xC0A80200));
  EXPECT_FALSE(Contains(network, 0xC0A800FF));
  EXPECT_EQ(LastAddress({0, 0}), 0xFFFFFFFFU);
  EXPECT_EQ(LastAddress({7, 32}), 7U);
}

TEST(Ipv4, OverlapMeansSharingAnAddress) {
  struct {
    const char* what;
    Ipv4Network a, b;
    bool overlap;
  } const rows[] = {
      {"equal", {0x0A000000, 24}, {0x0A000000, 24}, true},
      {"nested", {0x0A000000, 8}, {0x0A010200, 24}, true},
      {"neighbours", {0x0A000000, 24}, {0x0A000100, 24}, false},
      {"last address", {0x0A000000, 24}, {0x0A0000FF, 32}, true},
      {"one past", {0x0A000000, 24}, {0x0A000100, 32}, false},
      {"everything", {0, 0}, {0xFFFFFFFF, 32}, true},
      {"ends of the space", {0, 32}, {0xFFFFFFFF, 32}, false},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(Overlaps(row.a, row.b), row.overlap) << row.what;
    EXPECT_EQ(Overlaps(row.b, row.a), row.overlap) << row.what << ", swapped";
  }
}

TEST(Ipv4, FormatsNetworkWithItsPrefix) {
  EXPECT_EQ(FormatNetwork({0xC0A80100, 24}), L"192.168.1.0/24");
  EXPECT_EQ(FormatNetwork({0, 0}), L"0.0.0.0/0");
}

TEST(Ipv4, TunnelAddressIsTheTextBeforeTheSlash) {
  EXPECT_EQ(ParseTunnelAddress(L"10.99.0.7"), 0x0A630007U);
  EXPECT_EQ(ParseTunnelAddress(L"10.99.0.7/24"), 0x0A630007U);
  EXPECT_EQ(ParseTunnelAddress(L"10.99.0.7/24/8"), 0x0A630007U);
  EXPECT_EQ(ParseTunnelAddress(L"10.99.0.7/"), 0x0A630007U);
  for (const wchar_t* text :
       {L"", L"/24", L" 10.99.0.7", L"10.99.0.7 /24", L"10.99.0", L"fe80::1"}) {
    EXPECT_FALSE(ParseTunnelAddress(text)) << text;
  }
}

}  // namespace
}  // namespace tunnel
