#pragma once

#include <string>
#include <string_view>

// What becomes of a settings file that cannot be read as JSON: it may hold profiles that nobody
// wants to type again, so it is set aside before a save would overwrite it.
namespace settings {

// The name under which the file at `path` is kept, in the same folder:
// "Client.settings.damaged-20260315_094102.json" for the `time` "20260315_094102" (local, as in the
// names of log files). From `attempt` 2 on, "-2", "-3" ... follows the time. Pure.
std::wstring DamagedSettingsPath(std::wstring_view path, std::wstring_view time, int attempt = 1);

// Renames the file at `path` to the first of those names that is free, so that no earlier kept file
// is lost, and returns the new path. Empty when it could not be renamed: the file is where it was,
// and who saves now overwrites it.
std::wstring KeepDamagedSettings(const std::wstring& path, std::wstring_view time);

}  // namespace settings
