#include "remote/rustdesk_config.h"

#include <exception>
#include <string_view>

#include "platform/path.h"
#include "text/utf8.h"

namespace remote {
namespace {

std::wstring Line(std::wstring_view name, std::wstring_view value) {
  std::wstring line(name);
  line += L" = '";
  for (const wchar_t unit : value) {
    if (unit == L'\\' || unit == L'\'') line += L'\\';
    line += unit;
  }
  return line + L"'\n";
}

}  // namespace

std::optional<std::wstring> ComposeRustDeskConfig(const RustDeskServer& server) {
  if (server.rendezvousServer.empty()) return std::nullopt;
  std::wstring config = Line(L"rendezvous_server", server.rendezvousServer) + L"\n[options]\n";
  config += Line(L"custom-rendezvous-server", server.rendezvousServer);
  config += Line(L"relay-server", server.relayServer);
  config += Line(L"key", server.key);
  if (!server.apiServer.empty()) config += Line(L"api-server", server.apiServer);
  return config;
}

std::vector<std::wstring> ListRustDeskConfigFiles(const RustDeskFolders& folders,
                                                  const RustDeskConfigPorts& ports) {
  return RustDeskConfigFiles(folders, ports.listFolders(UsersFolder(folders)));
}

void WriteRustDeskConfig(const std::wstring& path, const RustDeskServer& server,
                         const RustDeskConfigPorts& ports) {
  const std::optional<std::wstring> config = ComposeRustDeskConfig(server);
  if (!config) return;
  ports.createFolders(platform::ParentFolder(path));
  ports.writeFile(path, text::ToUtf8(*config));
}

void ConfigureRustDesk(const RustDeskServer& server, const RustDeskFolders& folders,
                       const RustDeskConfigPorts& ports) {
  for (const std::wstring& path : ListRustDeskConfigFiles(folders, ports)) {
    try {
      WriteRustDeskConfig(path, server, ports);
    } catch (const std::exception&) {
      continue;  // the next file may be the one that counts
    }
  }
}

}  // namespace remote
