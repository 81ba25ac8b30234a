#pragma once

#include "platform/handles_win.h"
#include "platform/system_error.h"

#include <optional>
#include <string>
#include <vector>

// Writing into folders that users own. The program runs with administrator rights; a link that a
// user placed there (symbolic, junction or hard) would redirect its writes to any other place with
// those rights. Any thread.
namespace platform {

// The number of trailing parts of a path, the file name included, that users can replace. The parts
// before them are trusted and may be links.
using OwnParts = int;

// Whether an open file or folder is itself a link (opened without following it) or has a second
// name elsewhere.
struct LinkFacts {
  bool isLink = false;
  bool hasSecondName = false;
};
// Empty, with the last error set, when the file system does not know.
std::optional<LinkFacts> AskForLinks(HANDLE file);

// A file that is really at the path it was opened by.
struct UnlinkedFile {
  FileHandle handle;  // empty when it could not be opened, or lies elsewhere
  DWORD error = 0;    // the reason; ERROR_CANT_ACCESS_FILE for a link on the way
  bool isNew = false;
};

// Opens or creates the file at `path` for `access` (which includes writing). It must have no second
// name, and none of the last `parts` parts of the path may be a link. The contents are unchanged.
UnlinkedFile OpenUnlinked(const std::wstring& path, OwnParts parts, DWORD access, DWORD share);

// Replaces the contents of that file, or creates it.
SystemResult WriteUnlinkedFile(const std::wstring& path, OwnParts parts, const std::string& bytes);

// Creates `folder` and its missing parents. False when one of its last `parts` parts is a link or
// could not be created.
bool CreateUnlinkedFolders(const std::wstring& folder, OwnParts parts);

// Creates a folder inside a user's own folders, or takes an existing one over: afterwards it and
// those of `files` (names) that exist in it belong to the administrators. Only they and the system
// may write there; other users may read and run the files. A link in place of the folder is
// removed, never its target, and so is a file among `files` with a second name elsewhere.
//
// Returns the folder's handle: while it is open, the folder cannot be renamed and replaced by
// another. Empty on failure; the folder is then unchanged or only partly protected. A process
// that already had one of the files open for writing can still write to it.
FileHandle TakeFolderForAdministrators(const std::wstring& folder,
                                       const std::vector<std::wstring>& files);

}  // namespace platform
