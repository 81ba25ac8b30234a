#pragma once

#include <string>

namespace platform {

// Folders of the signed-in user, without a trailing slash except where Windows gives one; empty
// when the system cannot tell.
std::wstring RoamingAppDataFolder();
std::wstring LocalAppDataFolder();
std::wstring ProgramFilesFolder();
std::wstring ProgramFilesX86Folder();
std::wstring DesktopFolder();
std::wstring WindowsFolder();
std::wstring TemporaryFolder();  // ends in a backslash, up to 259 characters (GetTempPathW)

// The running program's file and the folder it lies in (paths up to 259 characters).
std::wstring ProgramPath();
std::wstring ProgramFolder();

}  // namespace platform
