#include "remote/rustdesk_server.h"

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

}  // namespace remote
