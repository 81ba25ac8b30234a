#include "platform/computer.h"
#include "platform/path.h"
#include "settings/settings_file.h"

namespace settings {
namespace {

std::wstring FileTimeNow() {
  return FileTime(platform::LocalTimeNow());
}

}  // namespace

std::wstring SettingsFilePath() {
  return platform::JoinPath(platform::RoamingAppDataFolder(), L"Velmarine\\Client.settings.json");
}

SettingsFile RealSettingsFile() {
  return SettingsFile(SettingsFilePath(), platform::RealFiles(), FileTimeNow);
}

std::wstring RuntimeFolder() {
  return RuntimeFolderBelow(platform::LocalAppDataFolder(), platform::TemporaryFolder());
}

}  // namespace settings
