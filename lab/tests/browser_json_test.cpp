#include <gtest/gtest.h>

#include <string>

#include "browser/dll/json_text.h"

namespace browser {
namespace {

TEST(IsJsonText, AcceptsEveryKindOfValue) {
  const std::wstring texts[] = {L"null",
                                L"true",
                                L"false",
                                L"0",
                                L"-0",
                                L"-12.50e+3",
                                L"1E9",
                                L"0.1e-1",
                                L"\"\"",
                                L"[]",
                                L"{}",
                                L"[1,[2,{}],\"x\"]",
                                L"{\"a\":1,\"a\":{\"b\":[]}}",
                                L" \t\r\n[ 1 , 2 ]\t\r\n ",
                                L"{ \"a\" : 1 }",
                                L"\"\\\"\\\\\\/\\b\\f\\n\\r\\t\\u0000\\uD83d\\ude00\"",
                                L"\"中 \xD83D\xDE00 \x7f \x85 \x2028 \xFFFF\"",
                                L"\"\xD83D\"",
                                L"\"\\udead\""};
  for (const std::wstring& text : texts) {
    EXPECT_TRUE(IsJsonText(text)) << ::testing::PrintToString(text);
  }
}

TEST(IsJsonText, RefusesEverythingElse) {
  const std::wstring texts[] = {L"",
                                L" ",
                                L"nul",
                                L"nulll",
                                L"True",
                                L"NaN",
                                L"Infinity",
                                L"undefined",
                                L"text",
                                L"+1",
                                L"01",
                                L"-",
                                L"1.",
                                L".5",
                                L"1e",
                                L"1e+",
                                L"0x1",
                                L"1 2",
                                L"--1",
                                L"\xFF11",
                                L"\"",
                                L"\"a",
                                L"\"a\"b",
                                L"'a'",
                                L"\"\\x\"",
                                L"\"\\u12\"",
                                L"\"\\u12g4\"",
                                L"\"\\",
                                L"\"\\u",
                                L"[",
                                L"]",
                                L"[1",
                                L"[1,",
                                L"[1,]",
                                L"[,1]",
                                L"[1 2]",
                                L"[1}",
                                L"[]]",
                                L"[]//",
                                L"{",
                                L"}",
                                L"{\"a\"",
                                L"{\"a\":",
                                L"{\"a\":1",
                                L"{\"a\":1,}",
                                L"{,}",
                                L"{a:1}",
                                L"{\"a\" 1}",
                                L"{\"a\":1]",
                                L"{1:2}",
                                L"{\"a\":1 \"b\":2}",
                                L"{\"a\",1}",
                                L"/**/1",
                                L"\xFEFF"
                                L"1",
                                L"\xA0"
                                L"1",
                                L"\x0b"
                                L"1",
                                L"1\x01",
                                std::wstring(L"1\0", 2)};
  for (const std::wstring& text : texts) {
    EXPECT_FALSE(IsJsonText(text)) << ::testing::PrintToString(text);
  }
}

TEST(IsJsonText, RefusesEachRawControlCharacterInAString) {
  for (wchar_t unit = 0; unit < 0x100; ++unit) {
    const bool valid = unit >= 0x20 && unit != L'"' && unit != L'\\';
    const std::wstring value = std::wstring(L"\"a") + unit + L"z\"";
    EXPECT_EQ(IsJsonText(value), valid) << int{unit};
    EXPECT_EQ(IsJsonText(L"{" + value + L":1}"), valid) << int{unit};
  }
}

TEST(IsJsonText, RefusesEachTruncation) {
  const std::wstring whole = L"{\"a\":[-1.5e+7,true,\"\\u00e9\\n\",{\"b\":null}]}";
  ASSERT_TRUE(IsJsonText(whole));
  for (std::size_t length = 0; length < whole.size(); ++length) {
    EXPECT_FALSE(IsJsonText(std::wstring_view(whole).substr(0, length))) << length;
  }
}

TEST(IsJsonText, AcceptsSomeDepthAndSurvivesAnyDepth) {
  const auto nested = [](std::size_t depth) {
    return std::wstring(depth, L'[') + std::wstring(depth, L']');
  };
  EXPECT_TRUE(IsJsonText(nested(1000)));
  EXPECT_FALSE(IsJsonText(nested(1001)));
  EXPECT_FALSE(IsJsonText(nested(1'000'000)));
}

}  // namespace
}  // namespace browser
