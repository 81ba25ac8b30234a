#include <gtest/gtest.h>

#include <cstdint>
#include <string>

#include "text/strings.h"

namespace text {
namespace {

TEST(FoldCase, LowersLettersUnitByUnit) {
  EXPECT_EQ(FoldCase(L"Plant A-9_[@`{"), L"plant a-9_[@`{");
  EXPECT_EQ(FoldCase(L"\x00C4\x00D6\x00DE\x00DF"), L"\x00E4\x00F6\x00FE\x00DF");
  EXPECT_EQ(FoldCase(L"\x00D7\x00F7"), L"\x00D7\x00F7");  // signs, not letters
  EXPECT_EQ(FoldCase(L"\x0391\x03A3\x0386\x038F"), L"\x03B1\x03C3\x03AC\x03CE");
  EXPECT_EQ(FoldCase(L"\x0410\x042F\x0401\x04C0"), L"\x0430\x044F\x0451\x04CF");
  EXPECT_EQ(FoldCase(L"\xFF21\x5DE5"), L"\xFF41\x5DE5");
  EXPECT_EQ(FoldCase(L"\xD83D\xDE00"), L"\xD83D\xDE00");
}

TEST(FoldCase, ChangesNothingTheSecondTime) {
  for (std::uint32_t value = 0; value <= 0xFFFF; ++value) {
    const std::wstring once = FoldCase(std::wstring(1, static_cast<wchar_t>(value)));
    EXPECT_EQ(FoldCase(once), once) << std::hex << value;
  }
}

struct Pair {
  const char* name;
  const wchar_t* letter;
  const wchar_t* folded;
};

TEST(FoldCase, FoldsTheLettersOfEveryAlphabet) {
  const Pair rows[] = {
      {"Polish", L"\x0141\x017B", L"\x0142\x017C"},
      {"Czech", L"\x017D\x010C\x011A", L"\x017E\x010D\x011B"},
      {"Vietnamese", L"\x1EDE\x01A0\x0110", L"\x1EDF\x01A1\x0111"},
      {"Turkish, dotless", L"\x015E\x011E", L"\x015F\x011F"},
      {"Y with diaeresis, which lies far from its pair", L"\x0178", L"\x00FF"},
      {"upper and title case", L"\x01C4\x01C5", L"\x01C6\x01C6"},
      {"open O, which lies in another block", L"\x0186", L"\x0254"},
      {"sharp S", L"\x1E9E", L"\x00DF"},
      {"long s", L"\x017F", L"s"},
      {"Kelvin and Angstrom", L"\x212A\x212B", L"k\x00E5"},
      {"micro", L"\x00B5", L"\x03BC"},
      {"final sigma and capital sigma", L"\x03C2\x03A3", L"\x03C3\x03C3"},
      {"Greek with accents", L"\x1F08\x1F88\x1FBC", L"\x1F00\x1F80\x1FB3"},
      {"Coptic", L"\x2C80", L"\x2C81"},
      {"Cyrillic of all kinds", L"\x052E\xA640\x1C80", L"\x052F\xA641\x0432"},
      {"Armenian", L"\x0531\x0556", L"\x0561\x0586"},
      {"Georgian", L"\x10A0\x1C90", L"\x2D00\x10D0"},
      {"Cherokee, to the upper case", L"\xAB70\xABBF\x13F8", L"\x13A0\x13EF\x13F0"},
      {"Roman numerals", L"\x2161\x216F\x2183", L"\x2171\x217F\x2184"},
      {"circled", L"\x24B6\x24CF", L"\x24D0\x24E9"},
      {"the furthest ways there are", L"\xA7AE\x2C6F", L"\x026A\x0250"},
      {"the last", L"\xFF3A", L"\xFF5A"},
  };
  for (const Pair& row : rows) {
    EXPECT_EQ(FoldCase(row.letter), row.folded) << row.name;
    EXPECT_EQ(FoldCase(row.folded), row.folded) << row.name;
    EXPECT_TRUE(EqualsIgnoreCase(row.letter, row.folded)) << row.name;
  }
}

TEST(FoldCase, KeepsLettersWithoutAOneUnitCounterpart) {
  const struct {
    const char* name;
    const wchar_t* letters;
  } rows[] = {
      {"dotted and dotless I, which only Turkish pairs with others", L"\x0130\x0131"},
      {"letters whose fold is two units", L"\x0149\x01F0\x0390\x1E96\xFB00\xFB06"},
      {"lower-case letters", L"z\x00E9\x0142\x017E\x1EDF\x2171"},
      {"between two pairs of letters", L"\x0138\x018D\x019B\x0221\x04CF"},
      {"Chinese, kana, Hangul, Arabic", L"\x6CF5\x7AD9\x30A2\xAC00\x0627"},
      {"digits and signs", L"09[`{\x00D7\x00F7\x2150\x2180\x20AC"},
      {"Deseret, beyond the basic plane", L"\xD801\xDC00"},
      {"halves of pairs and the last unit", L"\xD800\xDFFF\xFFFF"},
  };
  for (const auto& row : rows) EXPECT_EQ(FoldCase(row.letters), row.letters) << row.name;
}

}  // namespace
}  // namespace text
