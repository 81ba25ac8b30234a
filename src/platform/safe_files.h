#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "platform/system_error.h"

// Files that must be neither half written nor exchanged: downloads, updates, the driver. Paths may
// be longer than 259 characters. Any thread; throws only std::bad_alloc. Windows only.
namespace platform {

// A file that cannot change while this record lives: others may read it, but not write, delete or
// rename it. The bytes that were checked are therefore the bytes that are used, whatever happens to
// the path meanwhile.
struct HeldFile {
  SystemResult result;           // of opening and reading
  std::shared_ptr<void> handle;  // the system's; closed with the last copy of the record
  std::string bytes;             // the whole file
};

// Opens and reads the file at `path` without following a link there. Fails for files of more than
// 512 MiB, which this program never needs.
HeldFile HoldFile(const std::wstring& path);

// Creates a new file at `path`, replacing a file or link there, and returns once the disk has the
// bytes. If the disk could not confirm them, the result is a success with the error code. After a
// failure there is no file at `path`, unless the old one could not be deleted.
SystemResult WriteNewFile(const std::wstring& path, const std::string& bytes);

// Replaces `to`, which need not exist, by a copy of `from` without its attributes. `to` is whole at
// any moment: the copy grows in "<to>.part" and then takes its place. Returns as WriteNewFile().
SystemResult CopyFileOver(const std::wstring& from, const std::wstring& to);

// Renames `from` to `to`, replacing even a read-only file, and returns once the disk has it. Both
// must be on one volume. A failure changes at most the read-only attribute.
SystemResult MoveFileOver(const std::wstring& from, const std::wstring& to);

// Deletes the file at `path`, even a read-only one; deletes a link, never its target.
void DeleteAnyFile(const std::wstring& path);

// Checks whether the program at `path` could be replaced by one of `sizeBytes`: it can be renamed,
// its folder accepts new files and the disk has room. Returns the first obstacle as the failure
// (ERROR_DISK_FULL for the last). Leaves no traces.
SystemResult ProbeReplacement(const std::wstring& path, std::uint64_t sizeBytes);

}  // namespace platform
