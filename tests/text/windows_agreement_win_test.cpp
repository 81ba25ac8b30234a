// Compares our conversions and tables with those of the system that runs the test.

#include <gtest/gtest.h>

#include <cstdint>
#include <random>
#include <string>
#include <utility>

#include "platform/windows_sdk.h"
#include "text/strings.h"
#include "text/utf8.h"

namespace text {
namespace {

std::wstring SystemFromUtf8(const std::string& bytes) {
  std::wstring units(bytes.size() * 2, L'\0');
  const int lengthUnits =
      ::MultiByteToWideChar(CP_UTF8, 0, bytes.data(), static_cast<int>(bytes.size()), units.data(),
                            static_cast<int>(units.size()));
  units.resize(static_cast<std::size_t>(lengthUnits));
  return units;
}

std::string SystemToUtf8(const std::wstring& units) {
  std::string bytes(units.size() * 3, '\0');
  const int lengthBytes =
      ::WideCharToMultiByte(CP_UTF8, 0, units.data(), static_cast<int>(units.size()), bytes.data(),
                            static_cast<int>(bytes.size()), nullptr, nullptr);
  bytes.resize(static_cast<std::size_t>(lengthBytes));
  return bytes;
}

std::string Hex(const std::string& bytes) {
  std::string text;
  for (const char byte : bytes) {
    constexpr char kDigits[] = "0123456789ABCDEF";
    const auto value = static_cast<std::uint8_t>(byte);
    text += {kDigits[value >> 4], kDigits[value & 0xF], ' '};
  }
  return text;
}

// Random bytes that resemble characters: lead and continuation bytes in all mixtures.
std::string RandomBytes(std::mt19937& random) {
  constexpr std::uint8_t kSpecial[] = {0x41, 0x7F, 0x80, 0x8F, 0x90, 0x9F, 0xA0, 0xBF,
                                       0xC0, 0xC1, 0xC2, 0xDF, 0xE0, 0xE1, 0xED, 0xEF,
                                       0xF0, 0xF1, 0xF4, 0xF5, 0xF7, 0xF8, 0xFC, 0xFF};
  std::string bytes;
  for (std::uint32_t i = 1 + random() % 8; i > 0; --i) {
    const std::uint32_t pick = random() % (2 * std::size(kSpecial));
    bytes.push_back(static_cast<char>(pick < std::size(kSpecial) ? kSpecial[pick] : random()));
  }
  return bytes;
}

// Cases in which the system's decoder is known to differ (seen with Wine 8): it includes in one
// U+FFFD a continuation byte outside the lead byte's narrowed range (as in E0 80), and the whole
// rest of the text after a character that the end of the text cuts off.
bool IsOutsideNarrowedRange(const std::string& bytes) {
  for (std::size_t i = 0; i + 1 < bytes.size(); ++i) {
    const auto lead = static_cast<std::uint8_t>(bytes[i]);
    const auto next = static_cast<std::uint8_t>(bytes[i + 1]);
    if (next < 0x80 || next > 0xBF) continue;
    if ((lead == 0xE0 && next < 0xA0) || (lead == 0xED && next > 0x9F) ||
        (lead == 0xF0 && next < 0x90) || (lead == 0xF4 && next > 0x8F)) {
      return true;
    }
  }
  return false;
}

TEST(WindowsAgreement, DecodesRandomBytesAsMultiByteToWideChar) {
  std::mt19937 random(1);
  int compared = 0;
  for (int round = 0; round < 200000; ++round) {
    const std::string bytes = RandomBytes(random) + "end";
    if (IsOutsideNarrowedRange(bytes)) continue;
    ++compared;
    ASSERT_EQ(FromUtf8(bytes), SystemFromUtf8(bytes)) << Hex(bytes);
  }
  EXPECT_GT(compared, 100000);
}

TEST(WindowsAgreement, DecodesEveryCharacterAsMultiByteToWideChar) {
  std::wstring units;
  for (std::uint32_t codePoint = 0; codePoint <= 0x10FFFF; ++codePoint) {
    if (codePoint >= 0xD800 && codePoint <= 0xDFFF) continue;
    if (codePoint <= 0xFFFF) {
      units.push_back(static_cast<wchar_t>(codePoint));
    } else {
      units.push_back(static_cast<wchar_t>(0xD7C0 + (codePoint >> 10)));
      units.push_back(static_cast<wchar_t>(0xDC00 + (codePoint & 0x3FF)));
    }
  }
  const std::string bytes = ToUtf8(units);
  EXPECT_TRUE(bytes == SystemToUtf8(units));
  EXPECT_TRUE(FromUtf8(bytes) == units);
  EXPECT_TRUE(SystemFromUtf8(bytes) == units);
}

TEST(WindowsAgreement, EncodesRandomUnitsAsWideCharToMultiByte) {
  std::mt19937 random(2);
  for (int round = 0; round < 200000; ++round) {
    std::wstring units;
    for (std::uint32_t i = 1 + random() % 8; i > 0; --i) {
      const std::uint32_t surrogate = 0xD800 + random() % 0x800;
      units.push_back(static_cast<wchar_t>(random() % 2 == 0 ? surrogate : random() & 0xFFFF));
    }
    ASSERT_EQ(Hex(ToUtf8(units)), Hex(SystemToUtf8(units)));
  }
}

TEST(WindowsAgreement, ClassifiesSpacesAsTheSystem) {
  for (std::uint32_t value = 0; value <= 0xFFFF; ++value) {
    const auto unit = static_cast<wchar_t>(value);
    WORD kinds = 0;
    ASSERT_TRUE(::GetStringTypeW(CT_CTYPE1, &unit, 1, &kinds));
    EXPECT_EQ(IsSpace(unit), (kinds & C1_SPACE) != 0) << std::hex << value;
  }
}

// The capital letters that are likely in site names: ASCII, Latin-1, Greek, Cyrillic, full-width.
// Other letters may differ: each version of Windows implements another version of Unicode, and
// lower-casing is not folding.
TEST(WindowsAgreement, FoldsTheCommonCapitalsAsTheSystem) {
  constexpr std::pair<std::uint32_t, std::uint32_t> kBlocks[] = {
      {0x0041, 0x005A}, {0x00C0, 0x00DE}, {0x0386, 0x03AB}, {0x0400, 0x0522}, {0xFF21, 0xFF3A}};
  int compared = 0;
  for (const auto& [first, last] : kBlocks) {
    for (std::uint32_t value = first; value <= last; ++value) {
      const auto unit = static_cast<wchar_t>(value);
      const wchar_t folded = FoldCase(std::wstring(1, unit))[0];
      if (folded == unit) continue;
      wchar_t lowered = unit;
      ::CharLowerBuffW(&lowered, 1);
      EXPECT_EQ(folded, lowered) << std::hex << value;
      ++compared;
    }
  }
  EXPECT_EQ(compared, 257);
}

}  // namespace
}  // namespace text
