#pragma once

#include <set>
#include <string>
#include <string_view>

#include "platform/computer.h"
#include "platform/files.h"
#include "settings/settings.h"

namespace settings {

// The settings file "Client.settings.json" and the files beside it:
//
//   Client.settings.last.json            the last good text, as a second copy
//   Client.settings.damaged-<time>.json  a copy of an untrusted file
//   Client.connection.json               the connection in force (GrantedConnection)
//
// The file is truncated and written in place. It is trusted if it is one whole JSON object, in
// UTF-8 or, after a byte-order mark, UTF-16; not if it is empty, cut or overwritten. Before it is
// overwritten, a trusted text is in the second copy, and an untrusted one has been set aside: a
// crash or power cut never loses what was saved before.
//
// Threads: any, one call at a time.
// Errors:  returned as a line or reason; throws only std::bad_alloc.
class SettingsFile {
 public:
  // `files` must outlive this object. `time` returns the local time as file names have it,
  // "20260315_094102".
  SettingsFile(std::wstring path, platform::FileDeps& files, std::wstring (*time)());

  // Fills `settings` and writes nothing. A missing file is a first start, which only sets a new
  // engineer id. For an untrusted file, loads the second copy or else all that can be read of the
  // file, with a new engineer id if it has none; an empty file without a second copy changes
  // nothing. Returns a line about an untrusted file, otherwise an empty text.
  [[nodiscard]] std::wstring Load(Settings& settings) const;

  struct Saved {
    std::wstring failure;  // why `settings` are not on the disk; empty on success
    std::wstring report;   // the line about a file that was set aside, if any
  };
  // Saves `settings`. Skips files that are up to date, unless the disk did not confirm them, and
  // sets the same damage aside only once.
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
  std::wstring keptPath_;               // the copy that was set aside last; empty: none
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
