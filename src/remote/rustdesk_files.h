#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "remote/desktop_session.h"

// Where RustDesk and its configuration may be on a computer, and the text of that configuration.
// Pure; any thread.
namespace remote {

// The folders that the paths are built from; empty if the system does not know them.
struct RustDeskFolders {
  std::wstring programFiles;
  std::wstring programFilesX86;
  std::wstring localAppData;
  std::wstring roamingAppData;
  std::wstring program;  // of the running program
  std::wstring runtime;  // the program's own runtime folder
  std::wstring windows;
};

// Those of this computer and this user. Windows only.
RustDeskFolders RealRustDeskFolders();

// The nine paths that may be the program, in the order in which they are tried.
std::vector<std::wstring> RustDeskCandidates(const RustDeskFolders& folders);

// The target of a download, in the runtime folder.
std::wstring RustDeskDownloadTarget(const RustDeskFolders& folders);

// True for a path that contains the runtime folder, in any letter case; never for an empty folder.
bool LiesInRuntimeFolder(std::wstring_view path, const RustDeskFolders& folders);

// The parent of the users' folders: "Users" on the drive of Windows.
std::wstring UsersFolder(const RustDeskFolders& folders);

// The configuration files of this user, of the users whose folder names are in `users`, and of the
// two service accounts; each once, ignoring letter case.
std::vector<std::wstring> RustDeskConfigFiles(const RustDeskFolders& folders,
                                              const std::vector<std::wstring>& users);

// How many of the last parts of a configuration file's or folder's path its user could replace by
// links: all parts below the account's folder, or for this program's own user all parts below the
// roaming folder, which may itself have been moved by a link.
int ConfigPartsOfUsers(std::wstring_view path, const RustDeskFolders& folders);

// The whole text of a configuration file, with lines ended by line feeds. Empty optional without a
// rendezvous server: then no file may be written. A backslash precedes every "\" and "'" in a
// value, although single quotes would preserve both: deployments rely on it.
std::optional<std::wstring> ComposeRustDeskConfig(const RustDeskServer& server);

}  // namespace remote
