#include <gtest/gtest.h>

#include "platform/url.h"

// Wine's WinHttpCrackUrl differs from the documented one in these cases, so only the native parser
// is tested.
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

TEST(NativeCrackUrl, RefusesANonNumericPortAndAMissingHost) {
  UrlParts parts;
  for (const wchar_t* url : {L"http://host:80x/", L"http://host:-1/", L"http://:80/", L"http://"}) {
    EXPECT_FALSE(CrackUrl(url, parts)) << url;
  }
}

}  // namespace
}  // namespace platform
