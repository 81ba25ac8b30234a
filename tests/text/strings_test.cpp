#include "text/strings.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace text {
namespace {

TEST(IsSpace, AcceptsExactlyTheSpacesOfAsciiAndUnicode) {
  const std::wstring spaces =
      L"\t\n\v\f\r \x0085\x00A0\x1680\x2000\x2001\x2002\x2003\x2004\x2005\x2006\x2007\x2008\x2009"
      L"\x200A\x2028\x2029\x202F\x205F\x3000";
  for (std::uint32_t value = 0; value <= 0xFFFF; ++value) {
    const auto unit = static_cast<wchar_t>(value);
    EXPECT_EQ(IsSpace(unit), spaces.find(unit) != std::wstring::npos) << std::hex << value;
  }
}

TEST(Trim, RemovesSpacesFromBothEndsOnly) {
  EXPECT_EQ(Trim(L""), L"");
  EXPECT_EQ(Trim(L" \t\r\n\x3000"), L"");
  EXPECT_EQ(Trim(L"key"), L"key");
  EXPECT_EQ(Trim(L"\x3000 a b \x00A0\r\n"), L"a b");
  EXPECT_EQ(Trim(L"x "), L"x");
  EXPECT_EQ(Trim(L" x"), L"x");
}

TEST(EqualsIgnoreCase, ComparesWholeTexts) {
  EXPECT_TRUE(EqualsIgnoreCase(L"", L""));
  EXPECT_TRUE(EqualsIgnoreCase(L"Plant A", L"pLANT a"));
  EXPECT_FALSE(EqualsIgnoreCase(L"Plant", L"Plant A"));
  EXPECT_FALSE(EqualsIgnoreCase(L"Plant A", L"Plant"));
  EXPECT_FALSE(EqualsIgnoreCase(L"Plant A", L"Plant B"));
}

TEST(SplitLines, SplitsAtEveryKindOfLineBreakAndDropsEmptyLines) {
  using Lines = std::vector<std::wstring>;
  EXPECT_EQ(SplitLines(L""), Lines());
  EXPECT_EQ(SplitLines(L"\r\n\n\r"), Lines());
  EXPECT_EQ(SplitLines(L"a"), Lines({L"a"}));
  EXPECT_EQ(SplitLines(L"a\nb\rc\r\nd"), Lines({L"a", L"b", L"c", L"d"}));
  EXPECT_EQ(SplitLines(L"\r\na\r\n\r\nb\r\n"), Lines({L"a", L"b"}));
  EXPECT_EQ(SplitLines(L" \n"), Lines({L" "}));
}

TEST(Join, PutsTheSeparatorBetweenParts) {
  const std::vector<std::wstring> none;
  const std::vector<std::wstring> one = {L"a"};
  const std::vector<std::wstring> withEmpty = {L"", L"b", L""};
  EXPECT_EQ(Join(none, L"\r\n"), L"");
  EXPECT_EQ(Join(one, L"\r\n"), L"a");
  EXPECT_EQ(Join(withEmpty, L"\r\n"), L"\r\nb\r\n");
}

TEST(PercentEncode, LeavesTheUnreservedCharactersAlone) {
  const std::wstring kept = L"AZaz09-._~";
  for (std::uint32_t value = 0; value < 0x80; ++value) {
    const auto unit = static_cast<wchar_t>(value);
    const bool alone = (value >= '0' && value <= '9') || (value >= 'A' && value <= 'Z') ||
                       (value >= 'a' && value <= 'z') || kept.find(unit) != std::wstring::npos;
    const std::wstring encoded = PercentEncode(std::wstring_view(&unit, 1));
    EXPECT_EQ(encoded.size(), alone ? 1u : 3u) << value;
  }
  EXPECT_EQ(PercentEncode(kept), kept);
}

TEST(PercentEncode, WritesUtf8BytesInUpperCaseHexadecimal) {
  EXPECT_EQ(PercentEncode(L""), L"");
  EXPECT_EQ(PercentEncode(L"a b/c?d=e&f+g%"), L"a%20b%2Fc%3Fd%3De%26f%2Bg%25");
  EXPECT_EQ(PercentEncode(L"\x5DE5"), L"%E5%B7%A5");
  EXPECT_EQ(PercentEncode(L"\xD83D\xDE00"), L"%F0%9F%98%80");
  EXPECT_EQ(PercentEncode(L"\xD83D"), L"%EF%BF%BD");
  EXPECT_EQ(PercentEncode(std::wstring_view(L"\0\n\x7F", 3)), L"%00%0A%7F");
}

}  // namespace
}  // namespace text
