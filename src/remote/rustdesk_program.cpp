#include "remote/rustdesk_program.h"

#include <exception>

#include "settings/server_address.h"
#include "text/strings.h"
#include "text/utf8.h"

namespace remote {
namespace {

constexpr std::wstring_view kProgramInTitle = L"rustdesk";
constexpr std::wstring_view kProgramFile = L"rustdesk.exe";

// A smaller file is not RustDesk but, for example, a proxy's error page.
constexpr std::uint64_t kMinProgramBytes = 1'048'577;

bool IsFile(const std::wstring& path, RemoteDesktopDeps& deps) {
  return !path.empty() && deps.SizeBytes(path).has_value();
}

bool IsWhole(const std::wstring& path, RemoteDesktopDeps& deps) {
  return !path.empty() && deps.SizeBytes(path).value_or(0) >= kMinProgramBytes;
}

std::wstring_view FileName(std::wstring_view path) {
  const std::size_t slash = path.find_last_of(L"\\/");
  return slash == std::wstring_view::npos ? path : path.substr(slash + 1);
}

}  // namespace

std::wstring FindRustDesk(settings::Settings& settings, const RustDeskServer* server,
                          RemoteDesktopDeps& deps) {
  const std::wstring& saved = settings.rustDeskPath;
  // In the runtime folder it is an earlier download, and an installed program precedes that.
  if (IsFile(saved, deps) && !LiesInRuntimeFolder(saved, deps.folders)) return saved;
  for (const std::wstring& candidate : RustDeskCandidates(deps.folders)) {
    if (IsFile(candidate, deps)) return candidate;
  }
  return DownloadRustDesk(settings, server, deps);
}

std::wstring DownloadRustDesk(settings::Settings& settings, const RustDeskServer* server,
                              RemoteDesktopDeps& deps) {
  std::wstring target = RustDeskDownloadTarget(deps.folders);
  deps.CreateFolders(deps.folders.runtime);
  deps.Delete(target + L".download");
  // The earlier download, which FindRustDesk() passed over in favour of an installed program.
  if (IsWhole(settings.rustDeskPath, deps)) return settings.rustDeskPath;
  if (server == nullptr) return {};
  const std::wstring url = settings::AbsoluteUrl(server->windowsDownloadUrl, settings.serverUrl);
  if (url.empty()) return {};
  // The result does not matter: a whole program from an earlier download serves as well.
  deps.Download(url, target);
  if (!IsWhole(target, deps)) return {};
  settings.rustDeskPath = target;
  return target;
}

std::vector<std::wstring> ListRustDeskConfigFiles(RemoteDesktopDeps& deps) {
  return RustDeskConfigFiles(deps.folders, deps.ListFolders(UsersFolder(deps.folders)));
}

void ConfigureRustDesk(const RustDeskServer& server, RemoteDesktopDeps& deps) {
  const std::optional<std::wstring> config = ComposeRustDeskConfig(server);
  if (!config) return;
  // The old files are replaced unread: any user of this computer may have written to them.
  const std::string bytes = text::ToUtf8(*config);
  for (const std::wstring& path : ListRustDeskConfigFiles(deps)) {
    try {
      deps.WriteConfigFile(path, bytes);
    } catch (const std::exception&) {
      continue;  // RustDesk may read any of the others
    }
  }
}

std::wstring JoinArguments(std::span<const std::wstring> arguments) {
  std::wstring joined;
  for (const std::wstring& argument : arguments) {
    if (!joined.empty()) joined += L' ';
    // Not escaped: an ID with a quote adds arguments, which docs/security.md lists as open.
    joined += L'"' + argument + L'"';
  }
  return joined;
}

bool IsRustDeskTitle(std::wstring_view title, std::wstring_view rustDeskId) {
  // An empty ID would be found in every title.
  if (!rustDeskId.empty() && title.find(rustDeskId) != std::wstring_view::npos) return true;
  return text::FoldCase(title).find(kProgramInTitle) != std::wstring::npos;
}

bool IsRustDeskImage(std::wstring_view imagePath, std::wstring_view startedPath) {
  if (imagePath.empty()) return false;
  return text::EqualsIgnoreCase(FileName(imagePath), kProgramFile) ||
         text::EqualsIgnoreCase(imagePath, startedPath);
}

void* ChooseRustDeskWindow(std::span<const DeskWindow> windows, std::wstring_view rustDeskId,
                           std::wstring_view startedPath) {
  void* first = nullptr;
  for (const DeskWindow& window : windows) {
    if (!IsRustDeskTitle(window.title, rustDeskId)) continue;
    if (IsRustDeskImage(window.imagePath, startedPath)) return window.handle;
    // Used only if no window belongs to RustDesk, or no process could be queried.
    if (first == nullptr) first = window.handle;
  }
  return first;
}

}  // namespace remote
