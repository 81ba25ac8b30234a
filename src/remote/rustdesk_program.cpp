#include "remote/rustdesk_program.h"

#include "settings/server_address.h"

namespace remote {
namespace {

// What is not larger is no RustDesk but, say, a proxy's page of regret.
constexpr std::uint64_t kLargestRubbishBytes = 1'048'576;

bool IsFile(const std::wstring& path, const RustDeskProgramPorts& ports) {
  return !path.empty() && ports.sizeBytes(path).has_value();
}

bool IsWhole(const std::wstring& path, const RustDeskProgramPorts& ports) {
  return !path.empty() && ports.sizeBytes(path).value_or(0) > kLargestRubbishBytes;
}

}  // namespace

std::wstring FindRustDesk(settings::Settings& settings, const RustDeskServer* server,
                          const RustDeskFolders& folders, const RustDeskProgramPorts& ports) {
  const std::wstring& saved = settings.rustDeskPath;
  if (IsFile(saved, ports) && !LiesInRuntimeFolder(saved, folders)) return saved;
  for (const std::wstring& candidate : RustDeskCandidates(folders)) {
    if (IsFile(candidate, ports)) return candidate;
  }
  return DownloadRustDesk(settings, server, folders, ports);
}

std::wstring DownloadRustDesk(settings::Settings& settings, const RustDeskServer* server,
                              const RustDeskFolders& folders, const RustDeskProgramPorts& ports) {
  std::wstring target = RustDeskDownloadTarget(folders);
  ports.createFolders(folders.runtime);
  ports.deleteFile(target + L".download");
  if (IsWhole(settings.rustDeskPath, ports)) return settings.rustDeskPath;
  if (server == nullptr) return {};
  const std::wstring url = settings::AbsoluteUrl(server->windowsDownloadUrl, settings.serverUrl);
  if (url.empty()) return {};
  ports.download(url, target);  // what lies there afterwards decides
  if (!IsWhole(target, ports)) return {};
  settings.rustDeskPath = target;
  return target;
}

}  // namespace remote
