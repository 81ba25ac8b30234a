#pragma once

#include <cstddef>
#include <span>
#include <string>
#include <string_view>

// Paths as text, and the folders of this computer.
namespace platform {

// `base` and `relative` joined by a backslash, unless `base` ends in a slash of either kind. An
// empty base gives `relative` alone.
std::wstring JoinPath(std::wstring_view base, std::wstring_view relative);

// Everything before the last slash of either kind; empty without one.
std::wstring ParentFolder(std::wstring_view path);

// `path` in the form that Windows accepts at any length, for calls on the file itself. An absolute
// path too long for the plain form gets the prefix "\\\\?\\" (or "\\\\?\\UNC\\") and must not
// contain "." or ".." parts; slashes become backslashes. Any other text is returned unchanged.
std::wstring ExtendedPath(std::wstring_view path);

// The path that the system wrote into `buffer`, returning its length without terminator as
// `lengthUnits`. Empty for length 0 (a failure) and for a length that exceeds the buffer.
std::wstring PathFromBuffer(std::span<const wchar_t> buffer, std::size_t lengthUnits);

// ---- Windows only

// Folders of the signed-in user, without a trailing slash except where Windows adds one; empty when
// the system does not know them.
std::wstring RoamingAppDataFolder();
std::wstring LocalAppDataFolder();
std::wstring ProgramFilesFolder();
std::wstring ProgramFilesX86Folder();
std::wstring DesktopFolder();
std::wstring WindowsFolder();
std::wstring TemporaryFolder();  // ends in a backslash, up to 259 characters (GetTempPathW)

// The running program's file and its folder (paths up to 259 characters).
std::wstring ProgramPath();
std::wstring ProgramFolder();

}  // namespace platform
