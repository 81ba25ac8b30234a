#include <gtest/gtest.h>

#include "platform/url.h"

// What Wine's splitter takes otherwise than Windows is said to, and so only the native one is held
// to.
namespace platform {
namespace {

TEST(NativeCrackUrl, KeepsAnIpv6HostInItsBrackets) {
  UrlParts parts;
  ASSERT_TRUE(CrackUrl(L"http://[::1]:31080/x", parts));
  EXPECT_EQ(parts.host, L"[::1]");
  EXPECT_EQ(parts.port, 31080);
  ASSERT_TRUE(CrackUrl(L"http://[fe80::1]", parts));
  EXPECT_EQ(parts.host, L"[fe80::1]");
  EXPECT_EQ(parts.port, 80);
}

TEST(NativeCrackUrl, RefusesAPortThatIsNoNumberAndAMissingHost) {
  UrlParts parts;
  for (const wchar_t* url : {L"http://host:80x/", L"http://host:-1/", L"http://:80/", L"http://"}) {
    EXPECT_FALSE(CrackUrl(url, parts)) << url;
  }
}

}  // namespace
}  // namespace platform
