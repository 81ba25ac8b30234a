#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "update/update_deps.h"

// The replacement process: how the running program starts it, and what it does. It exists because
// Windows does not let a running program replace its own file.
namespace update {

// `text` as one argument of a command line: in quotes, with a backslash before each quote inside.
// Backslashes stay as they are, which suits paths; a text with a backslash at its end or before a
// quote is not split back into itself. Pure; any thread.
std::wstring QuoteArgument(std::wstring_view text);

// The command line of the replacement process, in the order that ParseApplyUpdate reads. Pure.
std::wstring UpdaterCommandLine(std::wstring_view updater, std::uint32_t processId,
                                std::wstring_view downloadedPath, std::wstring_view programPath);

// Starts the replacement process, which will put the file `downloadedPath` in the running program's
// place after the program has ended. It runs a copy of the program, "<program>.updater.exe", or the
// program itself if no copy can be made. The copy remains; the next update overwrites it. False
// when the process could not be started. Any thread.
bool StartUpdater(const std::wstring& downloadedPath, UpdateDeps& deps);

// The exit codes of the replacement process. If the system gave an error code for a failed copy or
// start, the exit code is that one instead.
inline constexpr int kReplaced = 0;  // and the new program started
inline constexpr int kNoSource = 2;
inline constexpr int kCopyFailed = 3;
inline constexpr int kRestartFailed = 4;
inline constexpr int kNotTrusted = 5;  // the old program was started again

// Replaces the file `destination` by the file `source` once the process `parentPid` has ended, and
// starts it. One wait, one pause, one attempt; every outcome is one line in the update log and the
// returned exit code. An untrusted source changes nothing, and the old program is started again.
// Blocks for up to a minute.
//
// The bytes that were checked are the ones installed: the source is read once and held meanwhile.
// The new program is first written to "<destination>.new"; then the old one is renamed to
// "<destination>.bak" and the new one to `destination`. Whenever the process or the power fails,
// either the old or the new program is complete at `destination`, or the old one at
// "<destination>.bak". If something there cannot be removed, there is no backup, and the new
// program replaces the old one in one step. A failure leaves the old program at `destination`. The
// backup is removed once the new program is on the disk.
int ApplyUpdate(std::uint32_t parentPid, const std::wstring& source,
                const std::wstring& destination, UpdateDeps& deps);

}  // namespace update
