#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

// Where the relay is: the central service's address with the connection's path. Pure, any thread.
namespace tunnel {

struct ServiceEndpoint {
  std::wstring host;
  std::uint16_t port = 0;  // the scheme's own where the address names none
};

// Host and port of a service address as the settings hold it, completed as below. Throws as
// BuildRelayUrl().
ServiceEndpoint ParseServiceEndpoint(std::wstring_view serverUrl);

// The path that names one connection at the relay; both texts are percent-encoded.
std::wstring BuildRelayPath(std::wstring_view connectionId, std::wstring_view engineerId);

// The relay's ws:// or wss:// address for a service address as the settings hold it: trimmed, the
// default service when empty, "http://" when it names no scheme. https:// and wss:// make the relay
// secure, http:// and ws:// do not. The port is left out where it is the scheme's own (80, 443).
// Throws std::runtime_error "WinHttpCrackUrl failed for URL: " and the address that could not be
// taken apart.
std::wstring BuildRelayUrl(std::wstring_view serverUrl, std::wstring_view relayPath);

// A relay address taken apart again.
struct RelayEndpoint {
  bool secure = false;
  std::wstring host;
  std::uint16_t port = 0;
  std::wstring path;  // with its query
};

// Empty when `relayUrl` is no ws:// or wss:// address.
std::optional<RelayEndpoint> ParseRelayUrl(std::wstring_view relayUrl);

}  // namespace tunnel
