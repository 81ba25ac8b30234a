#pragma once

#include <map>
#include <string>
#include <vector>

namespace win32 {

// The slots that hold the addresses of this program's imported functions, by function name; one
// slot per function and module. Valid until the program ends.
using ImportTable = std::multimap<std::string, void**>;
ImportTable ReadImportTable();

// Writes `value` into a slot, which is read-only otherwise. False when the system refuses.
bool SetImport(void** place, void* value);

}  // namespace win32
