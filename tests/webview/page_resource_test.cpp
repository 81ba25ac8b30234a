#include <gtest/gtest.h>

#include "webview/web_create.h"

namespace webview {
namespace {

// webview_test.rc embeds the text in UTF-8, with one byte that belongs to no character.
TEST(PageFromResources, DecodesThePageThatTheProgramCarries) {
  EXPECT_EQ(PageFromResources(), L"<p>维马林 \xFFFD</p>");
}

}  // namespace
}  // namespace webview
