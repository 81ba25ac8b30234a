#pragma once

#include <string>

#include "platform/handles_win.h"

// How carried files reach the disk. Files are compared by their size alone, on purpose: one of the
// same size is left alone, so that a driver file in use is not touched at every start.
namespace shell {

// The RCDATA resources that hold the packet driver.
inline constexpr WORD kDriverLibraryResource = 201;  // WinDivert.dll
inline constexpr WORD kDriverResource = 202;         // WinDivert64.sys

// Writes the resource `id` of `module` to `targetPath`, making its folder, unless a file of that
// size is there. False when the resource is missing or empty, or not every byte was written.
bool ExtractResource(HMODULE module, WORD id, const std::wstring& targetPath);

// Copies `source` over `target`, making its folder, when `source` exists and `target` is missing or
// differs in size. A failure is not reported.
void CopyIfChanged(const std::wstring& source, const std::wstring& target);

// Makes sure that the packet driver's two files lie in the runtime folder, which only
// administrators write to from then on, and puts that folder first in the search for libraries.
// Called once, before the window exists. Every failure is silent: an old copy in use stays, and
// loading the driver tells when there is none. Returns what WhatIsForeignIn() says of the folder
// then. As long as `folderHold` keeps its handle, nobody can put another folder in the place of
// this one.
std::wstring LayOutRuntimeFiles(platform::FileHandle& folderHold);

// A line for the log when the driver's library in `folder` is not the one among the resources of
// `module`, such as one that an engineer has put there; it is used all the same. Otherwise empty.
std::wstring WhatIsForeignIn(HMODULE module, const std::wstring& folder);

// The same for the resources of `module`, the runtime folder `folder` and a program
// that runs from `programPath`. Run from the build output of a source tree, it also refreshes the
// driver files which the next build embeds; otherwise it touches no file outside `folder`.
void LayOutRuntimeFilesFrom(HMODULE module, const std::wstring& folder,
                            const std::wstring& programPath);

}  // namespace shell
