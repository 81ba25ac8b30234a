#include "remote/desktop_session.h"

#include "settings/server_address.h"
#include "text/strings.h"

namespace remote {
namespace {

constexpr std::wstring_view kOpenedPrefix = L"远程桌面已打开：";
constexpr std::wstring_view kCopied = L"，访问密码已复制。";
constexpr std::wstring_view kCopyFailed = L"，访问密码复制失败，请手动复制。";
constexpr std::wstring_view kNoPassword = L"。";

std::wstring_view SuffixFor(PasswordCopy copy) {
  if (copy == PasswordCopy::None) return kNoPassword;
  return copy == PasswordCopy::Done ? kCopied : kCopyFailed;
}

}  // namespace

std::wstring DesktopSessionUrl(const settings::Settings& settings) {
  // Encoded, so that a slash in the number cannot name another path.
  return settings::NormaliseServerUrl(settings.serverUrl) + L"/api/devices/" +
         text::PercentEncode(settings.deviceNumber) + L"/remote-desktop/session";
}

std::wstring DesktopSessionBody(const settings::Settings& settings) {
  using settings::QuoteJsonString;
  return L"{\"deviceNumber\":" + QuoteJsonString(settings.deviceNumber) +  //
         L",\"deviceSecret\":" + QuoteJsonString(settings.deviceSecret) +  //
         L",\"engineerId\":" + QuoteJsonString(settings.engineerId) + L"}";
}

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

DesktopSession ReadDesktopSession(const settings::JsonValue& data) {
  DesktopSession session;
  session.rustDeskId = settings::JsonStringOrEmpty(data, L"rustDeskId");
  session.accessPassword = settings::JsonStringOrEmpty(data, L"accessPassword");
  const settings::JsonValue* const server = settings::FindJsonMember(data, L"server");
  // Without an object the service names no servers: RustDesk is neither configured nor downloaded.
  if (server != nullptr && server->AsObject() != nullptr) {
    session.server = ReadRustDeskServer(*server);
  }
  return session;
}

std::wstring DesktopOpenedText(std::wstring_view rustDeskId, PasswordCopy copy) {
  return std::wstring(kOpenedPrefix).append(rustDeskId).append(SuffixFor(copy));
}

}  // namespace remote
