#include "tunnel/relay/relay_url.h"

#include <stdexcept>

#include "platform/url.h"
#include "settings/server_address.h"
#include "text/strings.h"
#include "text/utf8.h"

namespace tunnel {
namespace {

bool IsWebSocketUrl(std::wstring_view url) {
  const std::wstring_view scheme = url.substr(0, url.find(L"://"));
  return text::EqualsIgnoreCase(scheme, L"ws") || text::EqualsIgnoreCase(scheme, L"wss");
}

// Also accepts ws:// and wss://, which CrackUrl() refuses. They differ from http:// and https://
// only in name (RFC 6455, section 3).
bool CrackAnyUrl(const std::wstring& url, platform::UrlParts& parts) {
  // "ws" becomes "http", and "wss" therefore "https".
  return platform::CrackUrl(IsWebSocketUrl(url) ? L"http" + url.substr(2) : url, parts);
}

// The parts of `serverUrl` followed by `path`.
platform::UrlParts CrackServiceUrl(std::wstring_view serverUrl, std::wstring_view path) {
  std::wstring url = text::Trim(serverUrl);
  if (url.empty()) url = settings::DefaultServerUrl();
  if (url.find(L"://") == std::wstring::npos) url.insert(0, L"http://");
  // `path` brings its own slash.
  while (!url.empty() && url.back() == L'/') url.pop_back();
  url += path;
  platform::UrlParts parts;
  if (!CrackAnyUrl(url, parts)) {
    throw std::runtime_error("WinHttpCrackUrl failed for URL: " + text::ToUtf8(url));
  }
  return parts;
}

}  // namespace

ServiceEndpoint ParseServiceEndpoint(std::wstring_view serverUrl) {
  const platform::UrlParts parts = CrackServiceUrl(serverUrl, L"/");
  return {parts.host, parts.port};
}

std::wstring BuildRelayPath(std::wstring_view connectionId, std::wstring_view engineerId) {
  // Encoded, so that no id can end the path or add a parameter.
  return L"/api/relay/client/" + text::PercentEncode(connectionId) + L"?engineerId=" +
         text::PercentEncode(engineerId);
}

std::wstring BuildRelayUrl(std::wstring_view serverUrl, std::wstring_view relayPath) {
  const platform::UrlParts parts = CrackServiceUrl(serverUrl, relayPath);
  std::wstring relayUrl = (parts.secure ? L"wss://" : L"ws://") + parts.host;
  const std::uint16_t schemePort = parts.secure ? 443 : 80;
  if (parts.port != schemePort) relayUrl += L":" + std::to_wstring(parts.port);
  return relayUrl + parts.path;
}

std::optional<RelayEndpoint> ParseRelayUrl(std::wstring_view relayUrl) {
  platform::UrlParts parts;
  if (!IsWebSocketUrl(relayUrl) || !CrackAnyUrl(std::wstring(relayUrl), parts)) return std::nullopt;
  return RelayEndpoint{parts.secure, parts.host, parts.port, parts.path};
}

}  // namespace tunnel
