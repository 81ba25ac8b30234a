#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

#include "platform/system_result.h"

namespace update {

// The exit codes of the replacement process. Where the system gave an error code for a failed copy
// or start, the exit code is that one instead.
inline constexpr int kReplaced = 0;  // and the new program started
inline constexpr int kNoSource = 2;
inline constexpr int kCopyFailed = 3;
inline constexpr int kRestartFailed = 4;

// The file operations of a swap. All that can go wrong but a copy is met by the next step, so
// only a copy tells how it went; one that succeeded with an error code may not be on the disk yet.
struct SwapFiles {
  std::function<bool(const std::wstring& path)> isFile;  // a folder is none
  std::function<void(const std::wstring& path)> remove;
  std::function<void(const std::wstring& from, const std::wstring& to)> moveOver;
  std::function<platform::SystemResult(const std::wstring& from, const std::wstring& to)> copyOver;
};

// What ApplyUpdate acts through: the program's own operations, or fakes in tests.
struct ApplyPorts {
  SwapFiles files;
  // Until the process has ended, at most `limit`; at once when there is none.
  std::function<void(std::uint32_t processId, std::chrono::milliseconds limit)> waitForEnd;
  std::function<void(std::chrono::milliseconds duration)> pause;
  std::function<platform::SystemResult(const std::wstring& commandLine)> start;
  std::function<void()> prepareLogFiles;  // of the client
  std::function<void(std::wstring_view message)> writeLog;
};

// Replaces the file `destination` by the file `source` once the process `parentPid` has ended, and
// starts it. The old file is kept as "<destination>.bak" until the disk has the new one: at any
// moment, even when the power fails, the old or the new program lies at `destination`, or the old
// one as that backup. One wait, one pause, one attempt; each outcome is one line in the update log
// and the exit code that this returns. A copy that fails brings the backup back. Blocks for up to a
// minute.
int ApplyUpdate(std::uint32_t parentPid, const std::wstring& source,
                const std::wstring& destination, const ApplyPorts& ports);

// The program's own; `prepareLogFiles` is the shell's. Windows only.
ApplyPorts RealApplyPorts(std::function<void()> prepareLogFiles);

}  // namespace update
