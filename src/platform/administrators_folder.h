#pragma once

#include "platform/handles_win.h"

#include <string>
#include <vector>

// A folder inside a user's own folders that only administrators write to. Windows only.
namespace platform {

// Makes the folder, or takes an existing one over: it and each of `files` in it (names; missing
// ones are passed over) then belong to the administrators, who with the system may write there;
// other users may read and run what lies there. A link at its place is removed first, never its
// target; so is a file among `files` with a second name somewhere else. Returns the folder, held:
// as long as that lives nobody can rename it and put another in its place. Empty when it could not
// be had so; the folder then is as it was, or less protected than said.
//
// Whoever had one of the files open for writing before can still write to it.
FileHandle TakeFolderForAdministrators(const std::wstring& folder,
                                       const std::vector<std::wstring>& files);

}  // namespace platform
