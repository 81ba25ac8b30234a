#pragma once

#include <functional>
#include <map>
#include <string>
#include <vector>

#include "settings/settings_file.h"
#include "settings/settings_store.h"
#include "text/utf8.h"

namespace settings {

inline constexpr wchar_t kPath[] = L"V\\Client.settings.json";
inline constexpr wchar_t kLastPath[] = L"V\\Client.settings.last.json";
inline constexpr wchar_t kGrantPath[] = L"V\\Client.connection.json";
inline constexpr wchar_t kDamagedPath[] = L"V\\Client.settings.damaged-20260315_094102.json";

// Thrown where MemoryDisk pretends that the process was killed.
struct Killed {};

// A disk in memory. A write takes three steps, as a real one may be cut short: the file is emptied,
// half of it is written, all of it is. The process may be killed before any of them, and before the
// write is told to have worked.
class MemoryDisk {
 public:
  SettingsDisk Disk() {
    SettingsDisk disk;
    disk.read = [this](const std::wstring& path) -> FileContent {
      const auto found = files.find(path);
      if (found == files.end()) return {};
      if (path == unreadable) return {true, std::nullopt};
      return {true, found->second};
    };
    disk.write = [this](const std::wstring& path, const std::string& bytes) {
      return Write(path, bytes);
    };
    disk.time = [] { return std::wstring(L"20260315_094102"); };
    return disk;
  }
  SettingsFile File() { return SettingsFile(kPath, Disk()); }

  // What a start would read.
  Settings Load() {
    Settings settings;
    loadReport = File().Load(settings);
    return settings;
  }

  std::map<std::wstring, std::string> files;
  std::vector<std::wstring> written;  // the paths of all writes that were begun
  std::wstring unreadable;            // the path of a file that exists and cannot be read
  std::function<std::wstring(const std::wstring& path)> refuse;  // a reason, or nothing
  // A reason after all was written: the file reads well, but the disk may not have it.
  std::function<std::wstring(const std::wstring& path)> doubt;
  std::function<void(const std::wstring& path)> onWritten;
  int stepsToLive = -1;  // until the process is killed; below 0: it lives on
  std::wstring loadReport;

 private:
  std::wstring Write(const std::wstring& path, const std::string& bytes) {
    const std::wstring reason = refuse ? refuse(path) : std::wstring();
    if (!reason.empty()) return reason;
    written.push_back(path);
    LiveOn();
    files[path].clear();
    LiveOn();
    files[path] = bytes.substr(0, bytes.size() / 2);
    LiveOn();
    files[path] = bytes;
    LiveOn();
    if (onWritten) onWritten(path);
    return doubt ? doubt(path) : std::wstring();
  }

  void LiveOn() {
    if (stepsToLive == 0) throw Killed{};
    if (stepsToLive > 0) --stepsToLive;
  }
};

// The bytes of the file for these settings.
inline std::string FileBytes(const Settings& settings) {
  return text::ToUtf8(WriteSettingsText(settings));
}

}  // namespace settings
