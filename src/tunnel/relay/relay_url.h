#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

// The relay's address: the central service's, with the connection's path. Pure, any thread.
namespace tunnel {

struct ServiceEndpoint {
  std::wstring host;
  std::uint16_t port = 0;  // the scheme's default if the address has none
};

// Host and port of a service address from the settings, completed as below. Throws as
// BuildRelayUrl().
ServiceEndpoint ParseServiceEndpoint(std::wstring_view serverUrl);

// The path of one connection at the relay; percent-encodes both texts.
std::wstring BuildRelayPath(std::wstring_view connectionId, std::wstring_view engineerId);

// The relay's ws:// or wss:// address for a service address from the settings: trimmed, the default
// service if empty, "http://" if it has no scheme. https:// and wss:// make the relay secure. A
// default port (80, 443) is left out. Throws std::runtime_error "WinHttpCrackUrl failed for URL: "
// and the invalid address.
std::wstring BuildRelayUrl(std::wstring_view serverUrl, std::wstring_view relayPath);

// The parts of a relay address.
struct RelayEndpoint {
  bool secure = false;
  std::wstring host;
  std::uint16_t port = 0;
  std::wstring path;  // with its query
};

// Empty unless `relayUrl` is a valid ws:// or wss:// address.
std::optional<RelayEndpoint> ParseRelayUrl(std::wstring_view relayUrl);

}  // namespace tunnel
