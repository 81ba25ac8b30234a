#pragma once

#include <string>

#include "settings/json.h"

// The service's own RustDesk servers, as its reply describes them. Pure; any thread.
namespace remote {

// What the service says of its RustDesk servers; a text that it does not say is empty.
struct RustDeskServer {
  std::wstring rendezvousServer;
  std::wstring relayServer;
  std::wstring apiServer;
  std::wstring key;
  std::wstring windowsDownloadUrl;  // of the program; absolute, or a path of the service
};

// Takes the members of `description` that are strings; all others count as empty.
RustDeskServer ReadRustDeskServer(const settings::JsonValue& description);

}  // namespace remote
