#include "service/http_call.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <optional>
#include <string>

namespace service {
namespace {

TEST(HttpFailureText, JoinsTheFunctionAndTheSystemsText) {
  EXPECT_EQ(HttpFailureText("WinHttpConnect", L"Access is denied."),
            "WinHttpConnect: Access is denied.");
}

TEST(HttpFailureText, KeepsTheSystemsLineBreakAndBlanks) {
  EXPECT_EQ(HttpFailureText("WinHttpOpen", L" no \r\n"), "WinHttpOpen:  no \r\n");
}

TEST(HttpFailureText, CarriesTheSystemsTextAsUtf8) {
  EXPECT_EQ(HttpFailureText("WinHttpReadData", L"无法连接 \xD83D\xDE00"),
            "WinHttpReadData: \xE6\x97\xA0\xE6\xB3\x95\xE8\xBF\x9E\xE6\x8E\xA5 \xF0\x9F\x98\x80");
}

TEST(HttpFailureText, IsFailedWhenTheSystemHasNoText) {
  EXPECT_EQ(HttpFailureText("WinHttpReceiveResponse", L""), "WinHttpReceiveResponse failed.");
}

TEST(ContentLength, ReadsDecimalDigitsUpTo64Bits) {
  struct Row {
    std::wstring_view value;
    std::optional<std::uint64_t> length;
  };
  const Row rows[] = {
      {L"0", 0},
      {L"5242880", 5242880},
      {L" 17 ", 17},
      {L"4294967296", 4294967296},
      {L"18446744073709551615", UINT64_MAX},
      {L"18446744073709551616", std::nullopt},
      {L"99999999999999999999999", std::nullopt},
      {L"", std::nullopt},
      {L"   ", std::nullopt},
      {L"-1", std::nullopt},
      {L"+1", std::nullopt},
      {L"1 2", std::nullopt},
      {L"0x10", std::nullopt},
      {L"12,12", std::nullopt},
  };
  for (const Row& row : rows) {
    EXPECT_EQ(ParseContentLength(row.value), row.length)
        << std::string(row.value.begin(), row.value.end());
  }
}

TEST(HttpStatus, SucceedsFrom200To299) {
  EXPECT_FALSE(IsHttpSuccess(0));
  EXPECT_FALSE(IsHttpSuccess(199));
  EXPECT_TRUE(IsHttpSuccess(200));
  EXPECT_TRUE(IsHttpSuccess(206));
  EXPECT_TRUE(IsHttpSuccess(299));
  EXPECT_FALSE(IsHttpSuccess(300));
  EXPECT_FALSE(IsHttpSuccess(404));
  EXPECT_FALSE(IsHttpSuccess(500));
}

}  // namespace
}  // namespace service
