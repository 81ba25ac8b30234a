#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <stop_token>
#include <string>

#include "remote/rustdesk_places.h"
#include "remote/rustdesk_server.h"
#include "settings/settings.h"

// Finding RustDesk's program on this computer, or fetching it. Any thread that may wait: a download
// takes its time.
namespace remote {

// What finding acts through: the program's own operations, or fakes in tests.
struct RustDeskProgramPorts {
  // Of a file that is no folder; empty optional when there is none.
  std::function<std::optional<std::uint64_t>(const std::wstring& path)> sizeBytes;
  std::function<bool(const std::wstring& folder)> createFolders;
  std::function<bool(const std::wstring& path)> deleteFile;
  std::function<bool(const std::wstring& url, const std::wstring& targetPath)> download;
};

// The program's own: the file system, and WinHTTP, whose download ends when `closing` is requested.
// Windows only.
RustDeskProgramPorts RealRustDeskProgramPorts(const std::stop_token& closing);

// The path of an existing program file: rustDeskPath, unless that lies in the runtime folder; one
// of the usual places; or what DownloadRustDesk() gives. Empty when there is none. `server` is null
// when the service says nothing of its servers.
std::wstring FindRustDesk(settings::Settings& settings, const RustDeskServer* server,
                          const RustDeskFolders& folders, const RustDeskProgramPorts& ports);

// Fetches the program into the runtime folder, stores its path in rustDeskPath and returns it. A
// file of more than 1 MiB that rustDeskPath names is taken as it is, without asking the network.
// Empty when the service names no address, or when what then lies in the runtime folder is not
// larger than 1 MiB; that file stays.
std::wstring DownloadRustDesk(settings::Settings& settings, const RustDeskServer* server,
                              const RustDeskFolders& folders, const RustDeskProgramPorts& ports);

}  // namespace remote
