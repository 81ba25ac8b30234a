#pragma once

#include <string>

#include "platform/memory_files.h"
#include "settings/settings_file.h"
#include "settings/settings_store.h"
#include "text/utf8.h"

namespace settings {

inline constexpr wchar_t kPath[] = L"V\\Client.settings.json";
inline constexpr wchar_t kLastPath[] = L"V\\Client.settings.last.json";
inline constexpr wchar_t kGrantPath[] = L"V\\Client.connection.json";
inline constexpr wchar_t kDamagedPath[] = L"V\\Client.settings.damaged-20260315_094102.json";

using platform::Killed;

// A computer's files in memory, including the settings file.
class MemoryDisk : public platform::MemoryFiles {
 public:
  SettingsFile File() {
    return SettingsFile(kPath, *this, [] { return std::wstring(L"20260315_094102"); });
  }

  // The settings that a start would load.
  Settings Load() {
    Settings settings;
    loadReport = File().Load(settings);
    return settings;
  }

  std::wstring loadReport;
};

// The bytes of a file with these settings.
inline std::string FileBytes(const Settings& settings) {
  return text::ToUtf8(WriteSettingsText(settings));
}

}  // namespace settings
