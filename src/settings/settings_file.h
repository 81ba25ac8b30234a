#pragma once

#include <set>
#include <string>
#include <string_view>

#include "platform/computer.h"
#include "platform/files.h"
#include "settings/settings.h"

namespace settings {

// The settings file "Client.settings.json" and what lies beside it in its folder:
//
//   Client.settings.last.json            the last good text, as a second copy
//   Client.settings.damaged-<time>.json  a file that could not be trusted, as it was found
//   Client.connection.json               the connection in force (GrantedConnection)
//
// The file is truncated and written in place. It can be trusted when it holds one whole JSON
// object, in UTF-8 or, behind a byte-order mark, UTF-16; an empty, cut or overwritten one cannot.
// What can be trusted is in the second copy before it is overwritten, what cannot is set aside
// first, so that no end of the program or of the power at any moment loses what had been saved
// before.
//
// Threads: any, one call at a time.
// Errors:  none thrown but for exhausted memory; what went wrong is returned as a line or reason.
class SettingsFile {
 public:
  // `files` must outlive this object. `time` returns the local time as file names have it,
  // "20260315_094102".
  SettingsFile(std::wstring path, platform::FileDeps& files, std::wstring (*time)());

  // Fills `settings`. A missing file is a first start: a new engineer id, all else unchanged. A
  // file that cannot be trusted: the second copy instead, or else what can be read of the file,
  // with a new engineer id if it yields none; an empty file without a second copy changes nothing.
  // Returns the line that says so, empty when there is nothing to say. Writes nothing.
  [[nodiscard]] std::wstring Load(Settings& settings) const;

  struct Saved {
    std::wstring failure;  // why `settings` are not on the disk; empty when they are
    std::wstring report;   // the line that names a file set aside, if one was
  };
  // Brings `settings` to the disk; writes nothing that lies there already, unless the disk has not
  // confirmed it, and sets nothing aside twice.
  [[nodiscard]] Saved Save(const Settings& settings);

 private:
  std::wstring LoadUntrusted(const platform::FileContent& content, Settings& settings) const;
  void LoadGrant(Settings& settings) const;
  std::wstring WriteFile(const std::wstring& path, const std::string& bytes);
  std::wstring WriteIfOther(const std::wstring& path, const std::string& bytes);
  std::wstring SaveGrant(const Settings& settings);
  void SecureWhatIsThere(const platform::FileContent& content, const std::string& next,
                         Saved& saved);
  void SetAside(const std::string& bytes, Saved& saved);

  std::wstring path_;
  std::wstring lastPath_;
  std::wstring grantPath_;
  std::wstring keptPath_;               // of the file set aside last; empty = none yet
  std::set<std::wstring> unconfirmed_;  // files whose last write failed
  platform::FileDeps& files_;
  std::wstring (*time_)();
};

// "20260315_094102", as file names have it.
std::wstring FileTime(const platform::LocalTime& time);

// Roaming application data \ Velmarine \ Client.settings.json. Windows only.
std::wstring SettingsFilePath();

// The file there. Windows only.
SettingsFile RealSettingsFile();

// The per-user folder for the files that the program carries in its own file or downloads: "<local
// application data>\Velmarine\Runtime", or below the temporary folder when the system does not know
// the former. Windows only.
std::wstring RuntimeFolder();

// The runtime folder for these base folders; the first may be empty.
std::wstring RuntimeFolderBelow(std::wstring_view localAppData, std::wstring_view temporary);

}  // namespace settings
