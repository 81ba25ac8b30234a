#include "text/ipv4_text.h"

#include <gtest/gtest.h>

#include <random>

namespace text {
namespace {

TEST(Ipv4Text, FormatsFourOctets) {
  EXPECT_EQ(FormatIpv4(0), L"0.0.0.0");
  EXPECT_EQ(FormatIpv4(0xC0A80114), L"192.168.1.20");
  EXPECT_EQ(FormatIpv4(0xFFFFFFFF), L"255.255.255.255");
}

TEST(Ipv4Text, AcceptsOnlyStrictDottedQuads) {
  EXPECT_EQ(ParseIpv4(L"0.0.0.0"), 0U);
  EXPECT_EQ(ParseIpv4(L"255.255.255.255"), 0xFFFFFFFFU);
  EXPECT_EQ(ParseIpv4(L"192.168.1.5"), 0xC0A80105U);
  for (const wchar_t* value :
       {L"",          L"1",         L"1.2",          L"1.2.3",
        L"1.2.3.",    L"1.2.3.4.",  L".1.2.3.4",     L"1..3.4",
        L"1.2.3.4.5", L"256.2.3.4", L"1.2.3.1000",   L"01.2.3.4",
        L"1.2.3.00",  L" 1.2.3.4",  L"1.2.3.4 ",     L"1. 2.3.4",
        L"+1.2.3.4",  L"-1.2.3.4",  L"0x1.2.3.4",    L"1.2.3.4a",
        L"plc.local", L"::1",       L"\xFF11.2.3.4", L"99999999999999999999.2.3.4"}) {
    EXPECT_FALSE(ParseIpv4(value)) << value;
  }
}

TEST(Ipv4Text, ReadsBackWhatItFormats) {
  std::mt19937 random(1);
  for (int round = 0; round < 2000; ++round) {
    const auto address = static_cast<std::uint32_t>(random());
    EXPECT_EQ(ParseIpv4(FormatIpv4(address)), address);
  }
}

}  // namespace
}  // namespace text
