#pragma once

#include <string>

#include "platform/handles_win.h"

// Writes the embedded files to disk. Files are compared by size alone, on purpose: a driver file in
// use must not be touched at every start.
namespace shell {

// The RCDATA resources that hold the packet driver.
inline constexpr WORD kDriverLibraryResource = 201;  // WinDivert.dll
inline constexpr WORD kDriverResource = 202;         // WinDivert64.sys

// Writes the resource `id` of `module` to `targetPath`, creating its folder, unless a file of that
// size exists. False when the resource is missing or empty, or the write was incomplete.
bool ExtractResource(HMODULE module, WORD id, const std::wstring& targetPath);

// Copies `source` over `target`, creating its folder, when `source` exists and `target` is missing
// or differs in size. Failures are not reported.
void CopyIfChanged(const std::wstring& source, const std::wstring& target);

// Puts the packet driver's two files into the runtime folder, which only administrators can write
// to from then on, and puts that folder first in the search for libraries. Called once, before the
// window exists. Failures are silent: an old copy in use stays, and loading the driver reports a
// missing one. Returns the line of WhatIsForeignIn(). While `folderHold` holds its handle, the
// folder cannot be replaced.
std::wstring LayOutRuntimeFiles(platform::FileHandle& folderHold);

// Returns a line for the log when the driver's library in `folder` differs from the resource of
// `module`, for instance because an engineer has put it there; it is used all the same.
std::wstring WhatIsForeignIn(HMODULE module, const std::wstring& folder);

// Lays out the resources of `module` in `folder` for a program at `programPath`. A program in the
// build output of a source tree also refreshes the driver files that its next build embeds.
void LayOutRuntimeFilesFrom(HMODULE module, const std::wstring& folder,
                            const std::wstring& programPath);

}  // namespace shell
