#include <gtest/gtest.h>

#include "webview/web_create.h"

namespace webview {
namespace {

// webview_test.rc embeds UTF-8 text with one invalid byte.
TEST(PageFromResources, DecodesThePageThatTheProgramCarries) {
  EXPECT_EQ(PageFromResources(), L"<p>维马林 \xFFFD</p>");
}

}  // namespace
}  // namespace webview
