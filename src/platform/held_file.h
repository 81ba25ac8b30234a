#pragma once

#include <memory>
#include <string>

#include "platform/system_result.h"

namespace platform {

// A file that stays what it is for as long as this record lives: others may read it, but neither
// write, delete nor rename it. Whoever checks the bytes and then uses them uses what was checked,
// whatever has happened to the path meanwhile.
struct HeldFile {
  SystemResult result;           // how opening and reading went
  std::shared_ptr<void> handle;  // the system's; the last copy of the record closes it
  std::string bytes;             // the whole file
};

// Opens and reads the file at `path`, not following a link that lies there. Fails for files of more
// than 512 MiB, which this program has no use for. Any thread; nothing throws but std::bad_alloc.
// Windows only.
HeldFile HoldFile(const std::wstring& path);

}  // namespace platform
