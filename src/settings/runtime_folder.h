#pragma once

#include <string>
#include <string_view>

// The per-user folder into which the program lays out what it carries in its own file, and
// downloads what it needs besides.
namespace settings {

// "<local application data>\Velmarine\Runtime"; below the temporary folder where the system cannot
// tell the former. Windows only; any thread.
std::wstring RuntimeFolder();

// The runtime folder for the given base folders, the first of which may be empty.
std::wstring RuntimeFolderBelow(std::wstring_view localAppData, std::wstring_view temporary);

}  // namespace settings
