#pragma once

#include <string>
#include <string_view>
#include <vector>

// Where RustDesk and its configuration may lie on a computer. Pure; any thread.
namespace remote {

// The folders that the places are made of; empty where the system cannot tell.
struct RustDeskFolders {
  std::wstring programFiles;
  std::wstring programFilesX86;
  std::wstring localAppData;
  std::wstring roamingAppData;
  std::wstring program;  // of the running program
  std::wstring runtime;  // the program's own runtime folder
  std::wstring windows;
};

// As this computer and this user have them. Windows only.
RustDeskFolders RealRustDeskFolders();

// The nine files that may be the program, in the order in which they are tried.
std::vector<std::wstring> RustDeskCandidates(const RustDeskFolders& folders);

// The download's target, below the runtime folder.
std::wstring RustDeskDownloadTarget(const RustDeskFolders& folders);

// True for a path with the runtime folder in it, in any letter case; never for an empty folder.
bool LiesInRuntimeFolder(std::wstring_view path, const RustDeskFolders& folders);

// The folder that holds the users' folders: "Users" on the drive of Windows.
std::wstring UsersFolder(const RustDeskFolders& folders);

// The configuration files of this user, of each user whose folder's name is in `users`, and of the
// two service accounts; each once, in any letter case.
std::vector<std::wstring> RustDeskConfigFiles(const RustDeskFolders& folders,
                                              const std::vector<std::wstring>& users);

// How many of the last parts of a configuration file's path, or of its folder's, are its user's to
// make links of: all below the folder of the account, or below the roaming folder of this program's
// own user, who may well have moved that by a link.
int ConfigPartsOfUsers(std::wstring_view path, const RustDeskFolders& folders);

}  // namespace remote
