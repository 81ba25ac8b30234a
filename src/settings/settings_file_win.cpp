#include "platform/known_folders.h"
#include "platform/path.h"
#include "settings/settings.h"

namespace settings {

std::wstring SettingsFilePath() {
  return platform::JoinPath(platform::RoamingAppDataFolder(), L"Velmarine\\Client.settings.json");
}

void LoadSettings(Settings& settings) {
  LoadSettings(SettingsFilePath(), settings);
}

void SaveSettings(const Settings& settings) {
  SaveSettings(SettingsFilePath(), settings);
}

}  // namespace settings
