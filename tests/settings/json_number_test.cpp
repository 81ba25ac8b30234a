#include "settings/json.h"

#include <gtest/gtest.h>

#include <clocale>
#include <cmath>
#include <cwchar>
#include <limits>
#include <random>
#include <string>

namespace settings {
namespace {

constexpr double kInfinity = std::numeric_limits<double>::infinity();

struct NumberRun {
  const wchar_t* run;
  double value;
};

constexpr NumberRun kRuns[] = {
    {L"", 0},
    {L"-", 0},
    {L"+", 0},
    {L"--1", 0},
    {L"+-1", 0},
    {L".", 0},
    {L"-.", 0},
    {L"e5", 0},
    {L".e5", 0},
    {L"0", 0},
    {L"7", 7},
    {L"+7", 7},
    {L"-7", -7},
    {L"007", 7},
    {L"1.5", 1.5},
    {L".5", .5},
    {L"-.5", -.5},
    {L"5.", 5},
    {L"1.2.3", 1.2},
    {L"1e", 1},
    {L"1e+", 1},
    {L"1e-", 1},
    {L"1e5", 1e5},
    {L"1E+5", 1e5},
    {L"1.5e-3", 1.5e-3},
    {L"1e5.5", 1e5},
    {L"1e5e5", 1e5},
    {L"1-2", 1},
    {L"1+2", 1},
    {L"5.e1", 50},
    {L"9007199254740993", 9007199254740992.0},
    {L"1.7976931348623157e308", 1.7976931348623157e308},
    {L"1e309", kInfinity},
    {L"-1e309", -kInfinity},
    {L"1e99999999999999999999999", kInfinity},
    {L"1e-99999999999999999999999", 0},
    {L"0e99999999999999999999999", 0},
    {L"0.0000000001e319", kInfinity},
    {L"4.9406564584124654e-324", 4.9406564584124654e-324},
    {L"1e-400", 0},
};

TEST(ParseJsonNumber, TakesTheLongestPrefixThatIsANumber) {
  for (const NumberRun& row : kRuns) EXPECT_EQ(ParseJsonNumber(row.run), row.value) << row.run;
}

TEST(ParseJsonNumber, KeepsTheSignOfZero) {
  EXPECT_TRUE(std::signbit(ParseJsonNumber(L"-0")));
  EXPECT_TRUE(std::signbit(ParseJsonNumber(L"-1e-400")));
  EXPECT_FALSE(std::signbit(ParseJsonNumber(L"-")));
}

TEST(ParseJsonNumber, DistinguishesTooLargeFromTooSmallByAllDigits) {
  const std::wstring zeros(400, L'0');
  EXPECT_EQ(ParseJsonNumber(L"1" + zeros), kInfinity);
  EXPECT_EQ(ParseJsonNumber(L"1" + zeros + L"e-400"), 1);
  EXPECT_EQ(ParseJsonNumber(L"0." + zeros + L"1"), 0);
  EXPECT_EQ(ParseJsonNumber(L"0." + zeros + L"1e401"), 1);
  EXPECT_EQ(ParseJsonNumber(zeros + L"1"), 1);
}

// The C library converts in the C locale, the initial locale of every program.
TEST(ParseJsonNumber, AgreesWithTheCLibraryOnRandomRuns) {
  ASSERT_STREQ(std::setlocale(LC_NUMERIC, nullptr), "C");
  std::mt19937 random(3);
  constexpr std::wstring_view kUnits = L"0123456789.+-eE";
  for (int round = 0; round < 100000; ++round) {
    std::wstring run;
    for (auto i = random() % 10; i > 0; --i) run.push_back(kUnits[random() % kUnits.size()]);
    // Random characters are rarely numbers; leading digits make them so.
    if (random() % 2 == 0) run.insert(0, std::to_wstring(random()));
    ASSERT_EQ(ParseJsonNumber(run), std::wcstod(run.c_str(), nullptr)) << run;
  }
}

TEST(ParseHexUnit, ReadsFourUnitsAsTheCLibraryDoes) {
  EXPECT_EQ(ParseHexUnit(L"0041"), L'A');
  EXPECT_EQ(ParseHexUnit(L"d83D"), wchar_t{0xD83D});
  EXPECT_EQ(ParseHexUnit(L"FFFF"), wchar_t{0xFFFF});
  EXPECT_EQ(ParseHexUnit(L"00zz"), L'\0');
  EXPECT_EQ(ParseHexUnit(L"12G4"), wchar_t{0x12});
  EXPECT_EQ(ParseHexUnit(L"zzzz"), L'\0');
  EXPECT_EQ(ParseHexUnit(L" 41 "), L'A');
  EXPECT_EQ(ParseHexUnit(L"0x41"), L'A');
  EXPECT_EQ(ParseHexUnit(L"0xzz"), L'\0');
  EXPECT_EQ(ParseHexUnit(L"+041"), L'A');
  EXPECT_EQ(ParseHexUnit(L"-001"), wchar_t{0xFFFF});
}

TEST(ParseHexUnit, AgreesWithTheCLibraryOnRandomUnits) {
  std::mt19937 random(4);
  constexpr std::wstring_view kUnits = L"0123456789abcdefABCDEF xX+-gG\t";
  for (int round = 0; round < 100000; ++round) {
    std::wstring four;
    while (four.size() < 4) four.push_back(kUnits[random() % kUnits.size()]);
    const unsigned long value = std::wcstoul(four.c_str(), nullptr, 16);
    ASSERT_EQ(ParseHexUnit(four), static_cast<wchar_t>(value & 0xFFFF)) << four;
  }
}

}  // namespace
}  // namespace settings
