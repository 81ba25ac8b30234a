#pragma once

#include <optional>
#include <string>
#include <string_view>

// The per-user folder into which the program lays out what it carries in its own file.
namespace shell {

// "<local application data>\Velmarine\Runtime"; below the temporary folder where the system cannot
// tell the former. Windows only; any thread.
std::wstring RuntimeFolder();

// Makes sure that the packet driver's two files lie in the runtime folder and puts that folder
// first in the search for libraries. Called once, before the window exists. Every failure is
// silent: an old copy in use stays, and loading the driver tells when there is none. Windows only.
void LayOutRuntimeFiles();

// The runtime folder for the given base folders, the first of which may be empty.
std::wstring RuntimeFolderBelow(std::wstring_view localAppData, std::wstring_view temporary);

// The root of the source tree from whose build output the program at `programPath` runs: the part
// before "\src\VelmarineNative\". Empty optional when it runs from anywhere else.
std::optional<std::wstring> DevelopmentTreeRoot(std::wstring_view programPath);

}  // namespace shell
