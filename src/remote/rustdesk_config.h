#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "remote/rustdesk_places.h"
#include "remote/rustdesk_server.h"

// Pointing RustDesk at the service's own servers. Any thread; nothing here is reported.
namespace remote {

// What configuring acts through: the program's own operations, or fakes in tests.
struct RustDeskConfigPorts {
  std::function<std::vector<std::wstring>(const std::wstring& folder)> listFolders;  // their names
  std::function<bool(const std::wstring& folder)> createFolders;
  std::function<bool(const std::wstring& path, const std::string& bytes)> writeFile;
};

// The program's own: the file system. Windows only.
RustDeskConfigPorts RealRustDeskConfigPorts();

// The whole text of a configuration file, its lines ended by line feeds. Empty optional without a
// rendezvous server: then no file is to be written. A backslash stands before every "\" and "'" of
// a value, although single quotes would take both as they are: deployments count on it. Pure.
std::optional<std::wstring> ComposeRustDeskConfig(const RustDeskServer& server);

// Every configuration file that this computer may have: RustDeskConfigFiles() for the users whose
// folders lie beside each other.
std::vector<std::wstring> ListRustDeskConfigFiles(const RustDeskFolders& folders,
                                                  const RustDeskConfigPorts& ports);

// Writes one file anew, UTF-8 without a mark, whatever it held; makes its folder. Does nothing at
// all without a rendezvous server.
void WriteRustDeskConfig(const std::wstring& path, const RustDeskServer& server,
                         const RustDeskConfigPorts& ports);

// Writes every file. One that cannot be written, as a rule another user's, is passed over.
void ConfigureRustDesk(const RustDeskServer& server, const RustDeskFolders& folders,
                       const RustDeskConfigPorts& ports);

}  // namespace remote
