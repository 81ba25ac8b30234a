#include "settings/json.h"

#include <gtest/gtest.h>

#include <iterator>
#include <utility>

namespace settings {
namespace {

TEST(JsonValue, IsNullWhenFresh) {
  const JsonValue value;
  EXPECT_TRUE(value.IsNull());
  EXPECT_EQ(value.AsBoolean(), nullptr);
  EXPECT_EQ(value.AsNumber(), nullptr);
  EXPECT_EQ(value.AsString(), nullptr);
  EXPECT_EQ(value.AsObject(), nullptr);
  EXPECT_EQ(value.AsArray(), nullptr);
}

TEST(JsonValue, CopiesItsWholeSubtree) {
  JsonValue copy;
  {
    const JsonValue original = ReadJsonDocument(L"{\"a\":[\"b\"]}");
    copy = original;
  }
  const JsonValue* member = FindJsonMember(copy, L"a");
  ASSERT_NE(member, nullptr);
  EXPECT_EQ(*member->AsArray()->at(0).AsString(), L"b");
}

TEST(JsonValue, IsEmptyOfItsKindAfterAMove) {
  JsonValue string = ReadJsonDocument(L"\"a text too long to be kept in place\"");
  JsonValue object = ReadJsonDocument(L"{\"a\":1}");
  JsonValue array = ReadJsonDocument(L"[1]");
  const JsonValue taken[] = {std::move(string), std::move(object), std::move(array)};
  EXPECT_EQ(std::size(taken), 3u);
  EXPECT_TRUE(string.AsString() != nullptr && string.AsString()->empty());
  EXPECT_TRUE(object.AsObject() != nullptr && object.AsObject()->empty());
  EXPECT_TRUE(array.AsArray() != nullptr && array.AsArray()->empty());
}

TEST(FindJsonMember, FindsMembersInAnyOrder) {
  const JsonValue value = ReadJsonDocument(L"{\"z\":1,\"a\":2,\"m\":3,\"\x5DE5\":4}");
  for (const auto& [key, number] :
       {std::pair{L"z", 1.0}, {L"a", 2.0}, {L"m", 3.0}, {L"\x5DE5", 4.0}}) {
    const JsonValue* member = FindJsonMember(value, key);
    ASSERT_NE(member, nullptr) << key;
    EXPECT_EQ(*member->AsNumber(), number);
  }
}

TEST(FindJsonMember, IsExact) {
  const JsonValue value = ReadJsonDocument(L"{\"key\":1}");
  EXPECT_EQ(FindJsonMember(value, L"Key"), nullptr);
  EXPECT_EQ(FindJsonMember(value, L"ke"), nullptr);
  EXPECT_EQ(FindJsonMember(value, L"key "), nullptr);
}

TEST(FindJsonMember, FindsNothingInValuesOfOtherTypes) {
  for (const wchar_t* text : {L"null", L"true", L"1", L"\"key\"", L"[\"key\"]"}) {
    EXPECT_EQ(FindJsonMember(ReadJsonDocument(text), L"key"), nullptr) << text;
  }
}

TEST(JsonStringOrEmpty, ReturnsOnlyStrings) {
  const JsonValue value = ReadJsonDocument(L"{\"s\":\"text\",\"n\":1,\"z\":null}");
  EXPECT_EQ(JsonStringOrEmpty(value, L"s"), L"text");
  EXPECT_EQ(JsonStringOrEmpty(value, L"n"), L"");
  EXPECT_EQ(JsonStringOrEmpty(value, L"z"), L"");
  EXPECT_EQ(JsonStringOrEmpty(value, L"missing"), L"");
  EXPECT_EQ(JsonStringOrEmpty(JsonValue(), L"s"), L"");
}

TEST(FindJsonString, DistinguishesEmptyFromMissing) {
  const JsonValue value = ReadJsonDocument(L"{\"s\":\"text\",\"e\":\"\",\"n\":1}");
  ASSERT_NE(FindJsonString(value, L"s"), nullptr);
  EXPECT_EQ(*FindJsonString(value, L"s"), L"text");
  ASSERT_NE(FindJsonString(value, L"e"), nullptr);
  EXPECT_EQ(FindJsonString(value, L"n"), nullptr);
  EXPECT_EQ(FindJsonString(value, L"missing"), nullptr);
  EXPECT_EQ(FindJsonString(ReadJsonDocument(L"[\"s\"]"), L"s"), nullptr);
}

TEST(JsonStringsOf, ReturnsTheStringsOfAnArrayInOrder) {
  const JsonValue value = ReadJsonDocument(
      L"{\"a\":[\"z\",1,\"\",null,[\"x\"],\"b\"],\"s\":\"text\",\"o\":{\"0\":\"x\"}}");
  EXPECT_EQ(JsonStringsOf(value, L"a"), (std::vector<std::wstring>{L"z", L"", L"b"}));
  for (const wchar_t* key : {L"s", L"o", L"missing"}) {
    EXPECT_TRUE(JsonStringsOf(value, key).empty()) << key;
  }
  EXPECT_TRUE(JsonStringsOf(ReadJsonDocument(L"[\"a\"]"), L"a").empty());
}

TEST(JsonObject, OrdersKeysByUnitWithPrefixesFirst) {
  const JsonValue value =
      ReadJsonDocument(L"{\"b\":0,\"\xFFFF\":0,\"ab\":0,\"a\":0,\"\xD83D\":0,\"B\":0}");
  std::vector<std::wstring> keys;
  for (const auto& [key, member] : *value.AsObject()) keys.push_back(key);
  EXPECT_EQ(keys, (std::vector<std::wstring>{L"B", L"a", L"ab", L"b", L"\xD83D", L"\xFFFF"}));
}

TEST(EscapeJsonString, EscapesExactlyFiveUnits) {
  EXPECT_EQ(EscapeJsonString(L"a\"b\\c\t\n\r"), L"a\\\"b\\\\c\\t\\n\\r");
  EXPECT_EQ(EscapeJsonString(L""), L"");
  for (std::uint32_t value = 0; value <= 0xFFFF; ++value) {
    const auto unit = static_cast<wchar_t>(value);
    const bool escaped = std::wstring_view(L"\t\n\r\"\\").find(unit) != std::wstring_view::npos;
    const std::wstring text = EscapeJsonString(std::wstring_view(&unit, 1));
    ASSERT_EQ(text, escaped ? L"\\" + text.substr(1) : std::wstring(1, unit)) << value;
  }
}

TEST(QuoteJsonString, PutsTheEscapedTextInQuotes) {
  EXPECT_EQ(QuoteJsonString(L""), L"\"\"");
  EXPECT_EQ(QuoteJsonString(L"a\"/\x5DE5"), L"\"a\\\"/\x5DE5\"");
}

}  // namespace
}  // namespace settings
