#include "text/utf8.h"

#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <random>
#include <string>
#include <string_view>

namespace text {
namespace {

struct EncodedText {
  const char* name;
  std::string_view bytes;
  std::wstring_view units;
};

// Well-formed text: both directions.
constexpr EncodedText kWellFormed[] = {
    {"nothing", "", L""},
    {"ASCII", "a~\x7F", L"a~\x7F"},
    {"first of two bytes", "\xC2\x80", L"\x0080"},
    {"last of two bytes", "\xDF\xBF", L"\x07FF"},
    {"first of three bytes", "\xE0\xA0\x80", L"\x0800"},
    {"Chinese", "\xE5\xB7\xA5\xE7\xA8\x8B", L"\x5DE5\x7A0B"},
    {"last before the surrogates", "\xED\x9F\xBF", L"\xD7FF"},
    {"first after the surrogates", "\xEE\x80\x80", L"\xE000"},
    {"byte-order mark, kept", "\xEF\xBB\xBF", L"\xFEFF"},
    {"last of three bytes", "\xEF\xBF\xBF", L"\xFFFF"},
    {"first of four bytes", "\xF0\x90\x80\x80", L"\xD800\xDC00"},
    {"emoji", "\xF0\x9F\x98\x80", L"\xD83D\xDE00"},
    {"last of all", "\xF4\x8F\xBF\xBF", L"\xDBFF\xDFFF"},
};

// Ill-formed bytes: one U+FFFD for each longest truncated character, and for each other byte.
constexpr EncodedText kIllFormed[] = {
    {"lone continuation bytes", "\x80\xBF", L"\xFFFD\xFFFD"},
    {"overlong of two bytes", "\xC0\x80", L"\xFFFD\xFFFD"},
    {"overlong of two bytes, C1", "\xC1\xBF", L"\xFFFD\xFFFD"},
    {"overlong of three bytes", "\xE0\x9F\xBF", L"\xFFFD\xFFFD\xFFFD"},
    {"overlong of four bytes", "\xF0\x8F\xBF\xBF", L"\xFFFD\xFFFD\xFFFD\xFFFD"},
    {"encoded surrogate", "\xED\xA0\x80", L"\xFFFD\xFFFD\xFFFD"},
    {"past the last character", "\xF4\x90\x80\x80", L"\xFFFD\xFFFD\xFFFD\xFFFD"},
    {"lead bytes that are none", "\xF5\xF8\xFE\xFF", L"\xFFFD\xFFFD\xFFFD\xFFFD"},
    {"two bytes cut off", "\xC3", L"\xFFFD"},
    {"three bytes cut off after two", "\xE5\xB7", L"\xFFFD"},
    {"four bytes cut off after three", "\xF0\x9F\x98", L"\xFFFD"},
    {"two bytes broken by a letter", "\xC3(", L"\xFFFD("},
    {"three bytes broken by a letter", "\xE5\xB7(", L"\xFFFD("},
    {"four bytes broken by a letter", "\xF0\x9F\x98(", L"\xFFFD("},
    {"broken by another lead byte", "\xF0\x9F\xE5\xB7\xA5", L"\xFFFD\x5DE5"},
    {"the Unicode example", "\x61\xF1\x80\x80\xE1\x80\xC2\x62\x80\x63\x80\xBF\x64",
     L"a\xFFFD\xFFFD\xFFFD"
     L"b\xFFFD"
     L"c\xFFFD\xFFFD"
     L"d"},
};

TEST(Utf8, ConvertsWellFormedTextBothWays) {
  for (const EncodedText& row : kWellFormed) {
    SCOPED_TRACE(row.name);
    EXPECT_EQ(FromUtf8(row.bytes), row.units);
    EXPECT_EQ(ToUtf8(row.units), row.bytes);
  }
}

TEST(Utf8, ReplacesEachLongestIllFormedSequenceOnce) {
  for (const EncodedText& row : kIllFormed) {
    SCOPED_TRACE(row.name);
    EXPECT_EQ(FromUtf8(row.bytes), row.units);
  }
}

TEST(Utf8, KeepsZeroBytesAndUnits) {
  EXPECT_EQ(FromUtf8(std::string_view("a\0b", 3)), std::wstring_view(L"a\0b", 3));
  EXPECT_EQ(ToUtf8(std::wstring_view(L"a\0b", 3)), std::string_view("a\0b", 3));
}

TEST(Utf8, EncodesLoneSurrogatesAsTheReplacementCharacter) {
  constexpr std::string_view kReplaced = "\xEF\xBF\xBD";
  EXPECT_EQ(ToUtf8(L"\xD83D"), kReplaced);
  EXPECT_EQ(ToUtf8(L"\xDE00"), kReplaced);
  EXPECT_EQ(ToUtf8(L"\xDE00\xD83D"), std::string(kReplaced) + std::string(kReplaced));
  EXPECT_EQ(ToUtf8(L"\xD83D\xD83D\xDE00"), std::string(kReplaced) + "\xF0\x9F\x98\x80");
  EXPECT_EQ(ToUtf8(L"\xD83Dx"), std::string(kReplaced) + "x");
}

TEST(Utf8, RoundTripsEveryCharacter) {
  std::wstring units;
  for (std::uint32_t unit = 0; unit <= 0xFFFF; ++unit) {
    if (unit < 0xD800 || unit > 0xDFFF) units.push_back(static_cast<wchar_t>(unit));
  }
  for (std::uint32_t high = 0xD800; high <= 0xDBFF; ++high) {
    units.push_back(static_cast<wchar_t>(high));
    units.push_back(static_cast<wchar_t>(0xDC00 + (high * 7 & 0x3FF)));
  }
  EXPECT_EQ(FromUtf8(ToUtf8(units)), units);
}

// Any bytes decode to UTF-16 units that survive encoding and decoding.
TEST(Utf8, DecodesAnyBytesToTextThatRoundTrips) {
  std::mt19937 random(20260315);
  for (int round = 0; round < 20000; ++round) {
    std::string bytes;
    for (auto i = random() % 12; i > 0; --i) {
      bytes.push_back(static_cast<char>(random() % 2 == 0 ? 0x80 + random() % 128 : random()));
    }
    const std::wstring units = FromUtf8(bytes);
    for (const wchar_t unit : units) ASSERT_LE(static_cast<std::uint32_t>(unit), 0xFFFFu);
    ASSERT_EQ(FromUtf8(ToUtf8(units)), units);
  }
}

TEST(MarkedBytes, AreDecodedByTheirByteOrderMark) {
  using namespace std::string_view_literals;
  constexpr EncodedText kMarked[] = {
      {"no mark", "a\xE6\xB3\xB5", L"a\x6CF5"},
      {"UTF-8",
       "\xEF\xBB\xBF"
       "a\xE6\xB3\xB5",
       L"a\x6CF5"},
      {"UTF-16, little-endian", "\xFF\xFE\x61\x00\xF5\x6C\x3D\xD8\x00\xDE"sv,
       L"a\x6CF5\xD83D\xDE00"},
      {"UTF-16, big-endian", "\xFE\xFF\x00\x61\x6C\xF5\xD8\x3D\xDE\x00"sv, L"a\x6CF5\xD83D\xDE00"},
      {"half a unit at the end", "\xFF\xFE\x61\x00\xF5"sv, L"a\xFFFD"},
      {"a mark alone", "\xFF\xFE", L""},
      {"half a mark", "\xFF", L"\xFFFD"},
      {"nothing", "", L""},
      {"zeros", "\x00\x00"sv, std::wstring_view(L"\0\0", 2)},
  };
  for (const EncodedText& row : kMarked)
    EXPECT_EQ(FromMarkedBytes(row.bytes), row.units) << row.name;
}

}  // namespace
}  // namespace text
