#pragma once

#include <cstdint>
#include <string>

#include "platform/system_result.h"

// Putting one file into the place of another. Paths may be longer than 259 characters. Windows
// only; any thread; nothing throws but std::bad_alloc.
namespace platform {

// Makes a new file at `path`, in the place of a file or link there, with these bytes, and returns
// once the disk has them. A file that the disk may not have yet is a success with the error code
// that says why. After a failure there is no file at `path`, unless the one that was there could
// not be deleted.
SystemResult WriteNewFile(const std::wstring& path, const std::string& bytes);

// Puts a copy of the file `from`, without its attributes, into the place of `to`, which need not
// exist. `to` is whole at any moment: what it was until the whole copy takes its place. The copy
// grows in "<to>.part". Succeeds and fails as WriteNewFile does.
SystemResult CopyFileOver(const std::wstring& from, const std::wstring& to);

// Renames `from` to `to`, replacing a file there (a read-only one too), and returns once the disk
// has it. Both must lie on one volume. A failure changes nothing but that attribute.
SystemResult MoveFileOver(const std::wstring& from, const std::wstring& to);

// Deletes the file at `path`, even one that is read-only; a link is deleted, never its target.
void DeleteAnyFile(const std::wstring& path);

// Whether the program at `path` could be replaced by one of `sizeBytes`: it may be renamed, its
// folder takes new files, and the disk has room. The first thing in the way is the failure
// (ERROR_DISK_FULL for the last). Leaves nothing behind.
SystemResult ProbeReplacement(const std::wstring& path, std::uint64_t sizeBytes);

}  // namespace platform
