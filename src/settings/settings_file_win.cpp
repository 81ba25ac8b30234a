#include <array>
#include <cwchar>

#include "platform/computer.h"
#include "platform/path.h"
#include "settings/settings_file.h"

namespace settings {
namespace {

std::wstring FileTime() {
  const platform::LocalTime now = platform::LocalTimeNow();
  std::array<wchar_t, 32> time{};
  std::swprintf(time.data(), time.size(), L"%04d%02d%02d_%02d%02d%02d", now.year, now.month,
                now.day, now.hour, now.minute, now.second);
  return time.data();
}

}  // namespace

std::wstring SettingsFilePath() {
  return platform::JoinPath(platform::RoamingAppDataFolder(), L"Velmarine\\Client.settings.json");
}

SettingsFile RealSettingsFile() {
  return SettingsFile(SettingsFilePath(), platform::RealFiles(), FileTime);
}

std::wstring RuntimeFolder() {
  return RuntimeFolderBelow(platform::LocalAppDataFolder(), platform::TemporaryFolder());
}

}  // namespace settings
