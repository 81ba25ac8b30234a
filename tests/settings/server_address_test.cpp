#include "settings/server_address.h"

#include <gtest/gtest.h>

namespace settings {
namespace {

TEST(DefaultServerUrl, IsHttpOnPort31080) {
  EXPECT_TRUE(DefaultServerUrl().starts_with(L"http://"));
  EXPECT_TRUE(DefaultServerUrl().ends_with(L":31080"));
  EXPECT_GT(DefaultServerUrl().size(), std::wstring(L"http://:31080").size());
}

TEST(NormaliseServerUrl, GivesTheBaseOfServiceAddresses) {
  const struct {
    const wchar_t* typed;
    const wchar_t* url;
  } rows[] = {
      {L" 10.1.2.3:8080/ ", L"http://10.1.2.3:8080"},
      {L"10.0.0.5:31080/", L"http://10.0.0.5:31080"},
      {L"https:\\\\host\\", L"https://host"},
      {L"http://host", L"http://host"},
      {L"HTTPS://Host", L"HTTPS://Host"},
      {L"http://host///", L"http://host"},
      {L"host\\path\\", L"http://host/path"},
      {L"\x3000http://host\r\n", L"http://host"},
      {L"h", L"http://h"},
      {L"ab", L"http://ab"},
      {L"host?a=b://c", L"host?a=b://c"},  // "://" anywhere counts
      {L"http:/host", L"http://http:/host"},
      {L"/", L"http:"},
      {L"://", L":"},
  };
  for (const auto& row : rows) EXPECT_EQ(NormaliseServerUrl(row.typed), row.url) << row.typed;
}

TEST(NormaliseServerUrl, GivesTheDefaultForNothing) {
  for (const wchar_t* typed : {L"", L" ", L"\t\r\n\x3000"}) {
    EXPECT_EQ(NormaliseServerUrl(typed), DefaultServerUrl());
  }
}

TEST(NormaliseServerUrl, LeavesItsOwnResultAlone) {
  for (const wchar_t* typed : {L"", L"10.1.2.3:8080/", L"https:\\\\host\\a\\"}) {
    const std::wstring url = NormaliseServerUrl(typed);
    EXPECT_EQ(NormaliseServerUrl(url), url);
  }
}

// Blanks are trimmed first, then the scheme is searched, then trailing slashes are removed. An
// address of little more than a scheme therefore changes again when it is normalised a second time,
// for example when a loaded file is saved. Neither form names a host.
TEST(NormaliseServerUrl, ChangesAnAddressWithoutAHostASecondTime) {
  const struct {
    const wchar_t* typed;
    const wchar_t* first;
    const wchar_t* second;
  } rows[] = {
      {L"http://", L"http:", L"http://http:"},
      {L"/", L"http:", L"http://http:"},
      {L"http:// /", L"http:// ", L"http:"},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(NormaliseServerUrl(row.typed), row.first) << row.typed;
    EXPECT_EQ(NormaliseServerUrl(row.first), row.second) << row.typed;
  }
}

TEST(AbsoluteUrl, IsKeptOrResolvedAgainstTheService) {
  const struct {
    const wchar_t* url;
    const wchar_t* wanted;
  } rows[] = {
      {L"http://cdn.example/a.exe", L"http://cdn.example/a.exe"},
      {L"HTTPS://cdn.example/a.exe?x=1", L"HTTPS://cdn.example/a.exe?x=1"},
      {L"/updates/a.exe", L"http://10.1.2.3:31080/updates/a.exe"},
      {L"updates/a.exe", L"http://10.1.2.3:31080/updates/a.exe"},
      {L"//updates/a.exe", L"http://10.1.2.3:31080//updates/a.exe"},
      {L"updates/v2:a.exe", L"http://10.1.2.3:31080/updates/v2:a.exe"},
      {L" /a", L"http://10.1.2.3:31080/ /a"},
      {L"/go?to=http://x/", L"/go?to=http://x/"},
      {L"/", L"http://10.1.2.3:31080/"},
      {L"", L""},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(AbsoluteUrl(row.url, L" 10.1.2.3:31080/ "), row.wanted) << row.url;
  }
}

}  // namespace
}  // namespace settings
