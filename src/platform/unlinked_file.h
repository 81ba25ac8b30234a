#pragma once

#include "platform/handles_win.h"
#include "platform/system_result.h"

#include <optional>
#include <string>

// Writing where others may have put links. The program has an administrator's rights and writes
// into folders that belong to users: a link there (symbolic, junction or hard) would have it write
// somewhere else, with those rights. Windows only; any thread.
namespace platform {

// How many of a path's last parts, the file's name among them, lie in somebody else's hands. What
// stands before them is trusted, and may well be a link.
using OwnParts = int;

// Whether the opened file or folder is a link itself (it was opened without following one), or has
// a second name elsewhere.
struct LinkFacts {
  bool isLink = false;
  bool hasSecondName = false;
};
// Nothing when the system cannot tell, with the last error.
std::optional<LinkFacts> AskForLinks(HANDLE file);

// A file that was opened where its path says and nowhere else.
struct UnlinkedFile {
  FileHandle handle;  // empty when it could not be opened, or is not where its path says
  DWORD error = 0;    // why; ERROR_CANT_ACCESS_FILE for a link on the way
  bool isNew = false;
};

// Opens the file at `path`, or makes it, for `access` (write access among it). Links are not
// followed when it is opened, and afterwards the place of what was opened is compared with the
// path: none of the last `parts` parts may be a link, and the file may have no second name. Its
// contents are as they were: nothing has been written or cut.
UnlinkedFile OpenUnlinked(const std::wstring& path, OwnParts parts, DWORD access, DWORD share);

// Replaces the contents of that file, or of a new one, by `bytes`.
SystemResult WriteUnlinkedFile(const std::wstring& path, OwnParts parts, const std::string& bytes);

// Makes `folder` and its missing parents. False when one of its last `parts` parts is a link, or
// one could not be made.
bool CreateUnlinkedFolders(const std::wstring& folder, OwnParts parts);

}  // namespace platform
