#include "platform/system_error.h"

#include <gtest/gtest.h>

namespace platform {
namespace {

// This program has its own message table with texts for 12002 and 5.
HMODULE OwnMessages() {
  return ::GetModuleHandleW(nullptr);
}

TEST(SystemErrorText, KeepsTheSystemsTextWithItsLineBreak) {
  const std::wstring text = SystemErrorText(ERROR_FILE_NOT_FOUND);
  ASSERT_GT(text.size(), 2u);
  EXPECT_TRUE(text.ends_with(L"\r\n"));
}

TEST(SystemErrorText, KeepsInsertsUnexpanded) {
  EXPECT_NE(SystemErrorText(ERROR_BAD_EXE_FORMAT).find(L"%1"), std::wstring::npos);
  EXPECT_EQ(SystemErrorText(12002, OwnMessages()), L"The test table's timeout, %1 kept\r\n");
}

TEST(SystemErrorText, LooksHttpCodesUpInTheGivenModule) {
  EXPECT_NE(SystemErrorText(12002, OwnMessages()), L"");
  EXPECT_EQ(SystemErrorText(12199, OwnMessages()), SystemErrorText(12199, nullptr));
}

TEST(SystemErrorText, LooksOtherCodesUpInTheSystemOnly) {
  EXPECT_EQ(SystemErrorText(5, OwnMessages()), SystemErrorText(5));
  EXPECT_EQ(SystemErrorText(5).find(L"Never"), std::wstring::npos);
}

TEST(SystemErrorText, IsEmptyForAnUnknownCode) {
  EXPECT_EQ(SystemErrorText(0x2FFFFFFF), L"");
  EXPECT_EQ(SystemErrorText(12198, nullptr), L"");
}

TEST(ErrorReason, IsTheSystemsTextInOneLine) {
  const std::wstring reason = ErrorReason(ERROR_ACCESS_DENIED);
  EXPECT_EQ(SystemErrorText(ERROR_ACCESS_DENIED).find(reason), 0u);
  EXPECT_FALSE(reason.empty());
  EXPECT_EQ(reason.find_first_of(L"\r\n"), std::wstring::npos);
}

TEST(ErrorReason, NamesTheNumberWhereTheSystemHasNoText) {
  EXPECT_EQ(ErrorReason(0x2FFFFFFF), L"错误 805306367");
}

}  // namespace
}  // namespace platform
