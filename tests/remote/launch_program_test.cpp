#include "remote/rustdesk_program.h"

#include <gtest/gtest.h>

#include <vector>

namespace remote {
namespace {

using Arguments = std::vector<std::wstring>;

TEST(JoinArguments, PutsEachInQuotesAsItIs) {
  EXPECT_EQ(JoinArguments({}), L"");
  EXPECT_EQ(JoinArguments(Arguments{L"--connect", L"123456789"}), L"\"--connect\" \"123456789\"");
  EXPECT_EQ(JoinArguments(Arguments{L"12 3\t4", L"", L"现场"}), L"\"12 3\t4\" \"\" \"现场\"");
  EXPECT_EQ(JoinArguments(Arguments{L"a\"b", L"c\\"}), L"\"a\"b\" \"c\\\"");
}

}  // namespace
}  // namespace remote
