#pragma once

#include <string>

#include "platform/system_result.h"

// Putting one file into the place of another. Windows only; any thread; nothing throws.
namespace platform {

// Copies the file `from`, contents and attributes, over `to`, which need not exist, and returns
// once the disk has it: what the caller deletes then is surely replaced, even if the power fails.
// A copy that the disk may not have yet, such as one of a read-only file, is a success with the
// error code that says why. After a failure `to` may be missing or incomplete.
SystemResult CopyFileOver(const std::wstring& from, const std::wstring& to);

// Renames `from` to `to`, replacing a file there, and returns once the disk has it. Both must lie
// on one volume. A failure changes nothing.
SystemResult MoveFileOver(const std::wstring& from, const std::wstring& to);

}  // namespace platform
