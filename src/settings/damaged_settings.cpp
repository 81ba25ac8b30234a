#include "settings/damaged_settings.h"

#include "platform/files.h"

namespace settings {
namespace {

constexpr std::wstring_view kExtension = L".json";
constexpr int kMaxAttempts = 1000;  // as many in one second mean that renaming cannot work

}  // namespace

std::wstring DamagedSettingsPath(std::wstring_view path, std::wstring_view time, int attempt) {
  if (path.ends_with(kExtension)) path.remove_suffix(kExtension.size());
  std::wstring kept(path);
  kept += L".damaged-";
  kept += time;
  if (attempt > 1) kept += L"-" + std::to_wstring(attempt);
  return kept + std::wstring(kExtension);
}

std::wstring KeepDamagedSettings(const std::wstring& path, std::wstring_view time) {
  for (int attempt = 1; attempt <= kMaxAttempts; ++attempt) {
    std::wstring kept = DamagedSettingsPath(path, time, attempt);
    if (platform::RenameFile(path, kept)) return kept;
    if (!platform::IsFile(kept)) break;  // failed for another reason than a name in use
  }
  return {};
}

}  // namespace settings
