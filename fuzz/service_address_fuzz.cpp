// Input: a service address as typed by the engineer, a connection id, an engineer id and an address
// from a reply, one per line. The URLs built from them can be parsed again and yield the same
// parts.

#include <stdexcept>
#include <string_view>

#include "fuzz_input.h"
#include "platform/url.h"
#include "settings/server_address.h"
#include "text/strings.h"
#include "tunnel/relay/relay_url.h"
#include "tunnel/relay/websocket_protocol.h"

namespace tunnel {
namespace {

using fuzz::Require;

bool HasScheme(std::wstring_view address) {
  return address.find(L"://") != std::wstring_view::npos;
}

// Percent-decoding (RFC 3986, section 2.1).
std::string Decode(std::wstring_view encoded) {
  constexpr std::wstring_view kDigits = L"0123456789ABCDEF";
  std::string bytes;
  for (std::size_t at = 0; at < encoded.size(); ++at) {
    if (encoded[at] != L'%') {
      bytes += static_cast<char>(encoded[at]);
      continue;
    }
    Require(at + 2 < encoded.size());
    const std::size_t high = kDigits.find(encoded[at + 1]);
    const std::size_t low = kDigits.find(encoded[at + 2]);
    Require(high < 16 && low < 16);
    bytes += static_cast<char>(high * 16 + low);
    at += 2;
  }
  return bytes;
}

void CheckPath(const std::wstring& path, const std::wstring& connection,
               const std::wstring& engineer) {
  constexpr std::wstring_view kStart = L"/api/relay/client/";
  constexpr std::wstring_view kQuery = L"?engineerId=";
  Require(path.starts_with(kStart));
  const std::size_t query = path.find(kQuery);
  Require(query != std::wstring::npos);
  const std::wstring_view view = path;
  Require(Decode(view.substr(kStart.size(), query - kStart.size())) == text::ToUtf8(connection));
  Require(Decode(view.substr(query + kQuery.size())) == text::ToUtf8(engineer));
}

void CheckNormalised(const std::wstring& typed, const std::wstring& reply) {
  const std::wstring url = settings::NormaliseServerUrl(typed);
  Require(!url.empty() && url.find(L'\\') == std::wstring::npos && !url.ends_with(L'/'));
  const std::wstring absolute = settings::AbsoluteUrl(reply, typed);
  Require(absolute.empty() == reply.empty() && absolute.ends_with(reply));
  // A scheme alone loses its slashes, so it is not a scheme any more.
  if (!HasScheme(url)) return;
  Require(reply.empty() || HasScheme(absolute));
  // Spaces before the removed slashes are trimmed only by the next call.
  if (text::Trim(url) == url) Require(settings::NormaliseServerUrl(url) == url);
}

bool IsSecure(std::wstring_view server) {
  const std::wstring address = text::FoldCase(text::Trim(server));
  return address.starts_with(L"https://") || address.starts_with(L"wss://");
}

void CheckRelayUrl(const std::wstring& server, const std::wstring& path) {
  std::wstring url;
  ServiceEndpoint service;
  try {
    url = BuildRelayUrl(server, path);
    service = ParseServiceEndpoint(server);
  } catch (const std::runtime_error& error) {
    Require(std::string_view(error.what()).starts_with("WinHttpCrackUrl failed for URL: "));
    return;
  }
  const auto relay = ParseRelayUrl(url);
  Require(relay && relay->host == service.host && relay->port == service.port);
  Require(!relay->host.empty() && relay->path.ends_with(path));
  Require(relay->secure == IsSecure(server));
  const bool isUsualPort = relay->port == (relay->secure ? 443 : 80);
  const std::wstring port = isUsualPort ? L"" : L":" + std::to_wstring(relay->port);
  Require(url == (relay->secure ? L"wss://" : L"ws://") + relay->host + port + relay->path);
  const std::string request = BuildHandshakeRequest(relay->path, relay->host);
  Require(request.ends_with("\r\n\r\n"));
}

void Run(fuzz::Input input) {
  const std::wstring server = input.WideLine();
  const std::wstring connection = input.WideLine();
  const std::wstring engineer = input.WideLine();
  const std::wstring reply = input.WideLine();
  CheckNormalised(server, reply);
  const std::wstring path = BuildRelayPath(connection, engineer);
  CheckPath(path, connection, engineer);
  CheckRelayUrl(server, path);
  CheckRelayUrl(settings::NormaliseServerUrl(server), path);
  ParseRelayUrl(reply);
  platform::UrlParts parts;
  if (platform::CrackUrl(settings::AbsoluteUrl(reply, server), parts)) {
    Require(!parts.host.empty() && !parts.path.empty());
  }
}

}  // namespace
}  // namespace tunnel

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t sizeBytes) {
  tunnel::Run(fuzz::Input(data, sizeBytes));
  return 0;
}
