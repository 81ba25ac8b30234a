#include "update/update_records.h"

#include <gtest/gtest.h>

namespace update {
namespace {

TEST(UpdateTries, AreReadAsTheyWereWritten) {
  for (const wchar_t* version : {L"2.0", L"a \"quoted\"\\ 版本\n"}) {
    const std::wstring text = UpdateTryText({version, 1'800'000'000});
    const auto record = ParseUpdateTry(text);
    ASSERT_TRUE(record) << text;
    EXPECT_EQ(record->version, version);
    EXPECT_EQ(record->atSeconds, 1'800'000'000);
  }
  EXPECT_EQ(UpdateTryText({L"2.0", 7}), LR"({"version":"2.0","triedAt":7})");
}

TEST(UpdateTries, OtherTextsAreNotRecords) {
  for (const wchar_t* text :
       {L"", L"{", L"7", L"[]", L"{}", LR"({"version":"2.0"})", LR"({"triedAt":7})",
        LR"({"version":"","triedAt":7})", LR"({"version":2,"triedAt":7})",
        LR"({"version":"2.0","triedAt":"7"})", LR"({"version":"2.0","triedAt":-1})",
        LR"({"version":"2.0","triedAt":1e300})",
        LR"({"version":"2.0","triedAt":9007199254740992})"}) {
    EXPECT_FALSE(ParseUpdateTry(text)) << text;
  }
}

TEST(UpdateTries, CountForADayAndForOneVersion) {
  const UpdateTry record{L"2.0", 1000};
  EXPECT_TRUE(WasTriedWithinADay(record, L"2.0", 1000));
  EXPECT_TRUE(WasTriedWithinADay(record, L"2.0", 1000 + 86399));
  EXPECT_FALSE(WasTriedWithinADay(record, L"2.0", 1000 + 86400));
  EXPECT_FALSE(WasTriedWithinADay(record, L"2.0", 999)) << "a time to come";
  EXPECT_FALSE(WasTriedWithinADay(record, L"2.00", 1000));
  EXPECT_FALSE(WasTriedWithinADay(std::nullopt, L"2.0", 1000));
}

}  // namespace
}  // namespace update
