#include "update/apply_update.h"

#include <gtest/gtest.h>

namespace update {
namespace {

TEST(QuoteArgument, PutsABackslashBeforeEveryQuoteAndNothingElse) {
  const struct {
    const wchar_t* text;
    const wchar_t* wanted;
  } rows[] = {
      {L"", L"\"\""},
      {L"a", L"\"a\""},
      {L"C:\\Program Files\\a b.exe", L"\"C:\\Program Files\\a b.exe\""},
      {L"D:\\维马林\\客户端.exe", L"\"D:\\维马林\\客户端.exe\""},
      {L"a\"b", L"\"a\\\"b\""},
      {L"\"", L"\"\\\"\""},
      {L"\"\"", L"\"\\\"\\\"\""},
      {L"\\", L"\"\\\""},            // unchanged
      {L"a\\\"b", L"\"a\\\\\"b\""},  // even the backslash
      {L"\t\xD83D\xDE00", L"\"\t\xD83D\xDE00\""},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(QuoteArgument(row.text), row.wanted);
  }
}

}  // namespace
}  // namespace update
