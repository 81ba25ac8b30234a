#pragma once

#include <map>
#include <string>
#include <vector>

namespace win32 {

// Where this program's calls of other modules' functions find their addresses: one place for each
// function and module, by the function's name. Valid as long as the program runs.
using ImportTable = std::multimap<std::string, void**>;
ImportTable ReadImportTable();

// Puts `value` into such a place, which the system keeps read-only. False when it refuses.
bool SetImport(void** place, void* value);

}  // namespace win32
