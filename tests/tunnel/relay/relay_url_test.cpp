#include "tunnel/relay/relay_url.h"

#include <gtest/gtest.h>

#include <stdexcept>

#include "settings/server_address.h"

namespace tunnel {
namespace {

constexpr wchar_t kPath[] = L"/api/relay/client/c1?engineerId=ENG-1";

std::string FailureOf(std::wstring_view serverUrl) {
  try {
    BuildRelayUrl(serverUrl, kPath);
  } catch (const std::runtime_error& error) {
    return error.what();
  }
  return {};
}

TEST(RelayPath, NamesConnectionAndEngineer) {
  EXPECT_EQ(BuildRelayPath(L"c1", L"ENG-1"), kPath);
}

TEST(RelayPath, EncodesEveryByteThatIsNotPlain) {
  EXPECT_EQ(BuildRelayPath(L"a b/\x4E2D", L"-_.~&\xD83D\xDE00"),
            L"/api/relay/client/a%20b%2F%E4%B8%AD?engineerId=-_.~%26%F0%9F%98%80");
}

TEST(RelayUrl, FollowsTheServiceAddress) {
  const struct {
    const char* name;
    const wchar_t* serverUrl;
    const wchar_t* start;
  } rows[] = {
      {"plain", L"http://relay.example:31080", L"ws://relay.example:31080"},
      {"no scheme", L"relay.example:31080", L"ws://relay.example:31080"},
      {"space around, slashes after", L" \t http://relay.example:31080/// ",
       L"ws://relay.example:31080"},
      {"a path before", L"http://relay.example:31080/base/", L"ws://relay.example:31080/base"},
      {"default port left out", L"http://relay.example:80", L"ws://relay.example"},
      {"no port", L"http://relay.example", L"ws://relay.example"},
      {"secure port on plain", L"http://relay.example:443", L"ws://relay.example:443"},
      {"secure", L"https://relay.example:31443", L"wss://relay.example:31443"},
      {"secure default port", L"https://relay.example:443", L"wss://relay.example"},
      {"plain port on secure", L"https://relay.example:80", L"wss://relay.example:80"},
      {"ws", L"ws://relay.example:31080/", L"ws://relay.example:31080"},
      {"ws default port", L"ws://relay.example:80", L"ws://relay.example"},
      {"wss", L"wss://relay.example:31443", L"wss://relay.example:31443"},
      {"wss default port", L"wss://relay.example:443", L"wss://relay.example"},
      {"capitals", L"WsS://relay.example", L"wss://relay.example"},
      {"a host that begins so", L"ws.example:31080", L"ws://ws.example:31080"},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(BuildRelayUrl(row.serverUrl, kPath), std::wstring(row.start) + kPath) << row.name;
  }
}

TEST(ServiceEndpoint, IsTheServicesHostAndPort) {
  const struct {
    const char* name;
    const wchar_t* serverUrl;
    const wchar_t* host;
    std::uint16_t port;
  } rows[] = {
      {"plain", L"http://relay.example:31080", L"relay.example", 31080},
      {"no scheme", L"relay.example:31080", L"relay.example", 31080},
      {"no port", L"http://relay.example", L"relay.example", 80},
      {"secure without port", L"https://relay.example/", L"relay.example", 443},
      {"slashes after", L" http://10.1.2.3:5000// ", L"10.1.2.3", 5000},
      {"a path", L"http://relay.example:31080/base", L"relay.example", 31080},
      {"two letters", L"ab", L"ab", 80},
      {"ws", L"ws://relay.example:31080", L"relay.example", 31080},
      {"ws without port", L"ws://relay.example/", L"relay.example", 80},
      {"wss without port", L"WSS://relay.example", L"relay.example", 443},
  };
  for (const auto& row : rows) {
    const ServiceEndpoint endpoint = ParseServiceEndpoint(row.serverUrl);
    EXPECT_EQ(endpoint.host, row.host) << row.name;
    EXPECT_EQ(endpoint.port, row.port) << row.name;
  }
  EXPECT_EQ(ParseServiceEndpoint(L"").port, 31080);
  EXPECT_THROW(ParseServiceEndpoint(L"ftp://relay.example"), std::runtime_error);
}

TEST(RelayUrl, EmptyServiceAddressMeansTheDefaultService) {
  const std::wstring expected = L"ws://" + settings::DefaultServerUrl().substr(7) + kPath;
  EXPECT_EQ(BuildRelayUrl(L"", kPath), expected);
  EXPECT_EQ(BuildRelayUrl(L" \r\n ", kPath), expected);
}

TEST(RelayUrl, NamesTheInvalidAddress) {
  const struct {
    const wchar_t* serverUrl;
    const char* taken;  // the rejected address, without the path
  } rows[] = {
      {L"ftp://relay.example", "ftp://relay.example"},
      {L" ftp://relay.example// ", "ftp://relay.example"},
      {L"ws://relay.example:65536", "ws://relay.example:65536"},
      {L"WSS://", "WSS:"},
      {L"wsx://relay.example", "wsx://relay.example"},
      {L"http://relay.example:65536", "http://relay.example:65536"},
      {L"://relay.example", "://relay.example"},
      {L"ftp://\x4E2D\xD83D\xDE00", "ftp://\xE4\xB8\xAD\xF0\x9F\x98\x80"},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(FailureOf(row.serverUrl),
              "WinHttpCrackUrl failed for URL: " + std::string(row.taken) +
                  "/api/relay/client/c1?engineerId=ENG-1");
  }
}

TEST(RelayUrl, IsParsed) {
  const auto plain = ParseRelayUrl(L"ws://relay.example:31080/a/b?c=%20d");
  ASSERT_TRUE(plain);
  EXPECT_FALSE(plain->secure);
  EXPECT_EQ(plain->host, L"relay.example");
  EXPECT_EQ(plain->port, 31080);
  EXPECT_EQ(plain->path, L"/a/b?c=%20d");
  const auto secure = ParseRelayUrl(L"wss://relay.example/a");
  ASSERT_TRUE(secure);
  EXPECT_TRUE(secure->secure);
  EXPECT_EQ(secure->port, 443);
  EXPECT_EQ(ParseRelayUrl(L"ws://relay.example/a")->port, 80);
}

TEST(RelayUrl, OtherSchemesAreRefused) {
  for (const wchar_t* const url : {L"", L"w", L"http://relay.example/", L"relay.example", L"ws:"}) {
    EXPECT_FALSE(ParseRelayUrl(url));
  }
}

}  // namespace
}  // namespace tunnel
