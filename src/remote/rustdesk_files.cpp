#include "remote/rustdesk_files.h"

#include <algorithm>

#include "platform/path.h"
#include "text/strings.h"

namespace remote {
namespace {

using platform::JoinPath;

constexpr std::wstring_view kDriveD = L"D:\\Program Files";
constexpr std::wstring_view kProgramNames[] = {L"RustDesk\\rustdesk.exe",
                                               L"RustDesk\\RustDesk.exe"};
constexpr std::wstring_view kUsersPrograms[] = {L"Programs\\RustDesk\\rustdesk.exe",
                                                L"Programs\\RustDesk\\RustDesk.exe"};
constexpr std::wstring_view kBesideProgram = L"Runtime\\rustdesk.exe";
constexpr std::wstring_view kDownloaded = L"rustdesk.exe";

// Used where the system does not name its folder.
constexpr std::wstring_view kDefaultWindows = L"C:\\Windows";
constexpr std::wstring_view kDefaultDrive = L"C:\\";
constexpr std::wstring_view kRoaming = L"AppData\\Roaming";
constexpr std::wstring_view kServiceAccounts[] = {
    L"ServiceProfiles\\LocalService\\AppData\\Roaming",
    L"ServiceProfiles\\LocalSystem\\AppData\\Roaming"};

std::wstring WindowsFolderOrDefault(const RustDeskFolders& folders) {
  return folders.windows.empty() ? std::wstring(kDefaultWindows) : folders.windows;
}

// Appends the configuration file below `roaming`, unless it is already in the list.
void AddConfigFile(std::vector<std::wstring>& files, const std::wstring& roaming) {
  if (roaming.empty()) return;
  std::wstring file = JoinPath(JoinPath(roaming, L"RustDesk"), L"config\\RustDesk2.toml");
  // This program's own user is among the users' folders again, perhaps in another letter case.
  const auto isSame = [&](const std::wstring& other) {
    return text::EqualsIgnoreCase(other, file);
  };
  if (std::ranges::none_of(files, isSame)) files.push_back(std::move(file));
}

// One line of a configuration file.
std::wstring Line(std::wstring_view name, std::wstring_view value) {
  std::wstring line(name);
  line += L" = '";
  for (const wchar_t unit : value) {
    // Single quotes would keep both as they are, but deployments rely on the backslashes.
    if (unit == L'\\' || unit == L'\'') line += L'\\';
    line += unit;
  }
  return line + L"'\n";
}

}  // namespace

std::vector<std::wstring> RustDeskCandidates(const RustDeskFolders& folders) {
  std::vector<std::wstring> candidates;
  for (const std::wstring_view base : {kDriveD, std::wstring_view(folders.programFiles),
                                       std::wstring_view(folders.programFilesX86)}) {
    for (const std::wstring_view name : kProgramNames) candidates.push_back(JoinPath(base, name));
  }
  for (const std::wstring_view name : kUsersPrograms) {
    candidates.push_back(JoinPath(folders.localAppData, name));
  }
  candidates.push_back(JoinPath(folders.program, kBesideProgram));
  return candidates;
}

std::wstring RustDeskDownloadTarget(const RustDeskFolders& folders) {
  return JoinPath(folders.runtime, kDownloaded);
}

bool LiesInRuntimeFolder(std::wstring_view path, const RustDeskFolders& folders) {
  if (folders.runtime.empty()) return false;
  // Anywhere in the path: one that begins with "\\?\" names the same folder.
  return text::FoldCase(path).find(text::FoldCase(folders.runtime)) != std::wstring::npos;
}

std::wstring UsersFolder(const RustDeskFolders& folders) {
  const std::wstring windows = WindowsFolderOrDefault(folders);
  // Neither a network path nor a bare "D:" names the root of a drive.
  const bool hasDrive = windows.size() >= 3 && windows[1] == L':';
  return JoinPath(hasDrive ? windows.substr(0, 3) : std::wstring(kDefaultDrive), L"Users");
}

std::vector<std::wstring> RustDeskConfigFiles(const RustDeskFolders& folders,
                                              const std::vector<std::wstring>& users) {
  std::vector<std::wstring> files;
  AddConfigFile(files, folders.roamingAppData);
  const std::wstring usersFolder = UsersFolder(folders);
  for (const std::wstring& user : users) {
    AddConfigFile(files, JoinPath(JoinPath(usersFolder, user), kRoaming));
  }
  const std::wstring windows = WindowsFolderOrDefault(folders);
  for (const std::wstring_view account : kServiceAccounts) {
    AddConfigFile(files, JoinPath(windows, account));
  }
  return files;
}

int ConfigPartsOfUsers(std::wstring_view path, const RustDeskFolders& folders) {
  constexpr int kBelowRoaming = 2;  // "RustDesk", "config"
  constexpr int kRoamingParts = 2;  // "AppData", "Roaming"
  const bool isFile = text::FoldCase(path).ends_with(L".toml");
  // This user's roaming folder is trusted, even where a link has moved it.
  const std::wstring own = text::FoldCase(JoinPath(folders.roamingAppData, L"RustDesk\\"));
  const bool isOwn = !folders.roamingAppData.empty() && text::FoldCase(path).starts_with(own);
  return kBelowRoaming + (isFile ? 1 : 0) + (isOwn ? 0 : kRoamingParts);
}

std::optional<std::wstring> ComposeRustDeskConfig(const RustDeskServer& server) {
  if (server.rendezvousServer.empty()) return std::nullopt;
  std::wstring config = Line(L"rendezvous_server", server.rendezvousServer) + L"\n[options]\n";
  config += Line(L"custom-rendezvous-server", server.rendezvousServer);
  config += Line(L"relay-server", server.relayServer);
  config += Line(L"key", server.key);
  if (!server.apiServer.empty()) config += Line(L"api-server", server.apiServer);
  return config;
}

}  // namespace remote
