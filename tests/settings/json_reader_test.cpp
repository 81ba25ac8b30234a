#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>

#include "settings/json.h"

namespace settings {
namespace {

// A value as compact text that shows its types, so that rows can be compared: "n" for a number,
// strings in angle brackets.
std::wstring Show(const JsonValue& value) {
  if (value.IsNull()) return L"null";
  if (value.AsBoolean() != nullptr) return *value.AsBoolean() ? L"true" : L"false";
  if (value.AsString() != nullptr) return L"<" + *value.AsString() + L">";
  if (value.AsNumber() != nullptr) {
    std::wstring number = std::to_wstring(*value.AsNumber());
    number.erase(number.find_last_not_of(L'0') + 1);
    return number.ends_with(L'.') ? number.substr(0, number.size() - 1) : number;
  }
  std::wstring shown;
  if (value.AsArray() != nullptr) {
    for (const JsonValue& element : *value.AsArray()) shown += Show(element) + L",";
    return L"[" + shown + L"]";
  }
  for (const auto& [key, member] : *value.AsObject()) shown += key + L":" + Show(member) + L",";
  return L"{" + shown + L"}";
}

struct AcceptedText {
  std::wstring_view text;
  const wchar_t* shown;
  std::size_t position;  // of the cursor afterwards
};

constexpr AcceptedText kAccepted[] = {
    {L"null", L"null", 4},
    {L"true", L"true", 4},
    {L"false", L"false", 5},
    {L"nulls", L"null", 4},
    {L"true false", L"true", 4},
    {L" \t\r\n\x00A0\x3000true", L"true", 10},
    {L"nul", L"0", 0},
    {L"True", L"0", 0},
    {L"NULL", L"0", 0},
    {L"", L"0", 0},
    {L"   ", L"0", 3},
    {L"x", L"0", 0},
    {L"]", L"0", 0},
    {L"\xFF11", L"0", 0},  // full-width digits do not count
    {L"-", L"0", 1},
    {L"12abc", L"12", 2},
    {L"1.2.3", L"1.2", 5},
    {L"1e", L"1", 2},
    {L"--1", L"0", 3},
    {L"-12.5e1,", L"-125", 7},
    {L"1.5E2", L"150", 5},
    {L"+7", L"7", 2},
    {L"[1E+2,-25E-1,+1e+1]", L"[100,-2.5,10,]", 19},
    {L"5E", L"5", 2},
    {L"E5", L"0", 2},
    {L"1+2", L"1", 3},
    {L"[]", L"[]", 2},
    {L"[ ]", L"[]", 3},
    {L"[1,]", L"[1,0,]", 4},
    {L"[,]", L"[0,0,]", 3},
    {L"[ 1 , [ true ] , null ]", L"[1,[true,],null,]", 23},
    {L"{}", L"{}", 2},
    {L"{ }", L"{}", 3},
    {L"{} garbage", L"{}", 2},
    {L"{\"k\":1,\"k\":2}", L"{k:2,}", 13},
    {L"{ \"b\" : 1 , \"a\" : { \"\" : \"x\" } }", L"{a:{:<x>,},b:1,}", 32},
    {L"{\"k\":}", L"{k:0,}", 6},
    {L"{\"ab\":1,\"a\":2,\"B\":3}", L"{B:3,a:2,ab:1,}", 20},
    {L"\"\"", L"<>", 2},
    {L"\"a\" b", L"<a>", 3},
    {L"\"\\\"\\/\\\\\"", L"<\"/\\>", 8},
    {L"\"\\b\\f\\n\\r\\t\"", L"<\b\f\n\r\t>", 12},
    {L"\"\\q\\U0041\"", L"<qU0041>", 10},
    {L"\"\\u0041\"", L"<A>", 8},
    {L"\"\\u41\"", L"<41>", 6},
    {L"\"\\u12G4x\"", L"<\x0012x>", 9},
    {L"\"\\uD83D\\uDE00\"", L"<\xD83D\xDE00>", 14},
    {L"\"\\uDE00\"", L"<\xDE00>", 8},
    {L"\"\n\t\x0001\"", L"<\n\t\x0001>", 5},
    {L"\"\x5DE5\xD83D\xDE00\"", L"<\x5DE5\xD83D\xDE00>", 5},
};

TEST(ReadJsonValue, ReadsValuesAndLeavesTheCursorAfterThem) {
  for (const AcceptedText& row : kAccepted) {
    SCOPED_TRACE(testing::Message() << std::wstring(row.text));
    std::size_t position = 0;
    EXPECT_EQ(Show(ReadJsonValue(row.text, position)), row.shown);
    EXPECT_EQ(position, row.position);
  }
}

// The four units after \u are consumed, whatever they are.
TEST(ReadJsonValue, TakesFourUnitsAfterUEvenAQuote) {
  std::size_t position = 0;
  EXPECT_EQ(Show(ReadJsonValue(L"\"\\u41\" \"", position)), L"<A>");
  EXPECT_EQ(position, 8u);
}

// With fewer than four units left in the document, the rest is plain text. If the closing quote is
// the fourth unit, it is consumed and the string does not end.
TEST(ReadJsonValue, ReadsAnEscapeAsPlainTextIfTheDocumentEndsTooSoon) {
  for (const auto& [text, shown] : {
           std::pair<const wchar_t*, const wchar_t*>{L"\"\\u41\"", L"<41>"},
           {L"\"\\u4\"", L"<4>"},
           {L"\"\\u\"", L"<>"},
           {L"\"\\u0041\"", L"<A>"},
       }) {
    std::size_t position = 0;
    EXPECT_EQ(Show(ReadJsonValue(text, position)), shown) << text;
    EXPECT_EQ(position, std::wstring_view(text).size()) << text;
  }
  std::size_t position = 0;
  EXPECT_THROW(ReadJsonValue(L"\"\\u041\"", position), std::runtime_error);
  EXPECT_EQ(position, 7u) << "the quote was one of the four";
}

TEST(ReadJsonValue, KeepsZeroUnitsInStrings) {
  std::size_t position = 0;
  const JsonValue value = ReadJsonValue(std::wstring_view(L"\"a\0b\\u0000\"", 11), position);
  EXPECT_EQ(*value.AsString(), std::wstring_view(L"a\0b\0", 4));
}

TEST(ReadJsonValue, StartsAtTheCursor) {
  std::size_t position = 2;
  EXPECT_EQ(Show(ReadJsonValue(L"1,2,3", position)), L"2");
  EXPECT_EQ(position, 3u);
}

std::string Failure(std::wstring_view text) {
  try {
    ReadJsonDocument(text);
  } catch (const std::runtime_error& error) {
    return error.what();
  }
  return "none";
}

TEST(ReadJsonValue, RefusesMalformedObjectsAndArrays) {
  for (const wchar_t* text : {L"{\"a\":1,}", L"{", L"{a:1}", L"{1:1}", L"{\"a\"", L"{\"a\" 1}",
                              L"{\"a\":1", L"{\"a\":1 \"b\":2}", L"{\"a\":1]", L"{,}", L"[", L"[1",
                              L"[1 2]", L"[1,", L"[1}", L"[x]", L"[{]", L"{\"a\":[}"}) {
    EXPECT_EQ(Failure(text), "Invalid JSON.") << text;
  }
}

TEST(ReadJsonValue, RefusesUnfinishedStrings) {
  for (const wchar_t* text : {L"\"", L"\"abc", L"\"ab\\", L"\"\\u", L"\"\\u004", L"\"\\u0041",
                              L"\"\\u041\"", L"{\"a", L"[\"", L"{\"a\":\"b"}) {
    EXPECT_EQ(Failure(text), "Invalid JSON string.") << text;
  }
}

TEST(ReadJsonValue, FailsAtEveryTruncationOfADocument) {
  const std::wstring document = L"{\"a\":[1,{\"b\":\"c\\u0041\"},null],\"d\":true}";
  EXPECT_EQ(Failure(document), "none");
  for (std::size_t length = 1; length < document.size(); ++length) {
    EXPECT_NE(Failure(document.substr(0, length)), "none") << length;
  }
}

TEST(ReadJsonValue, AcceptsNestingUpToItsLimit) {
  const auto nested = [](std::size_t depth) {
    return std::wstring(depth, L'[') + std::wstring(depth, L']');
  };
  EXPECT_EQ(Failure(nested(kMaxJsonDepth)), "none");
  EXPECT_EQ(Failure(nested(kMaxJsonDepth + 1)), "Invalid JSON.");
  EXPECT_EQ(Failure(L"[" + nested(1) + L"," + nested(kMaxJsonDepth - 1) + L"]"), "none");
}

TEST(ReadJsonValue, RefusesAMillionOpeningBracketsWithoutCrashing) {
  EXPECT_EQ(Failure(std::wstring(1'000'000, L'[')), "Invalid JSON.");
  std::wstring objects;
  for (int i = 0; i < 1'000'000; ++i) objects += L"{\"\":";
  EXPECT_EQ(Failure(objects), "Invalid JSON.");
}

TEST(ReadJsonValue, ReadsLongFlatText) {
  std::wstring text = L"[";
  for (int i = 0; i < 200'000; ++i) text += L"1,";
  const JsonValue value = ReadJsonDocument(text + L"2]");
  EXPECT_EQ(value.AsArray()->size(), 200'001u);
}

}  // namespace
}  // namespace settings
