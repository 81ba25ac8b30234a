#include "remote/rustdesk_server.h"

#include "settings/server_address.h"

namespace remote {

RustDeskServer ReadRustDeskServer(const settings::JsonValue& description) {
  using settings::JsonStringOrEmpty;
  RustDeskServer server;
  server.rendezvousServer = JsonStringOrEmpty(description, L"rendezvousServer");
  server.relayServer = JsonStringOrEmpty(description, L"relayServer");
  server.apiServer = JsonStringOrEmpty(description, L"apiServer");
  server.key = JsonStringOrEmpty(description, L"key");
  server.windowsDownloadUrl = JsonStringOrEmpty(description, L"windowsDownloadUrl");
  return server;
}

std::wstring RustDeskDownloadUrl(const RustDeskServer& server, std::wstring_view serverUrl) {
  const std::wstring& url = server.windowsDownloadUrl;
  if (url.empty() || url.find(L"://") != std::wstring::npos) return url;
  std::wstring absolute = settings::NormaliseServerUrl(serverUrl);
  if (url.front() != L'/') absolute += L'/';
  return absolute + url;
}

}  // namespace remote
