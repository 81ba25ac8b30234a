#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

#include "platform/safe_files.h"
#include "platform/system_error.h"
#include "update/trusted_update.h"

namespace update {

// The exit codes of the replacement process. Where the system gave an error code for a failed copy
// or start, the exit code is that one instead.
inline constexpr int kReplaced = 0;  // and the new program started
inline constexpr int kNoSource = 2;
inline constexpr int kCopyFailed = 3;
inline constexpr int kRestartFailed = 4;
inline constexpr int kNotTrusted = 5;  // the old program was started again

// The file operations of a swap, as platform/safe_files.h describes them.
struct SwapFiles {
  std::function<bool(const std::wstring& path)> isFile;  // false for a folder
  std::function<platform::HeldFile(const std::wstring& path)> hold;
  std::function<platform::SystemResult(const std::wstring& path, const std::string& bytes)>
      writeNew;
  std::function<platform::SystemResult(const std::wstring& from, const std::wstring& to)> moveOver;
  std::function<void(const std::wstring& path)> remove;
};

// What ApplyUpdate acts through: the program's own operations, or fakes in tests.
struct ApplyPorts {
  SwapFiles files;
  // Until the process has ended, at most `limit`; at once when there is none.
  std::function<void(std::uint32_t processId, std::chrono::milliseconds limit)> waitForEnd;
  std::function<void(std::chrono::milliseconds duration)> pause;
  // Why the file may not become the program; empty when it may.
  std::function<std::wstring(const platform::HeldFile& file, const std::wstring& path)>
      whyNotTrusted;
  std::function<platform::SystemResult(const std::wstring& commandLine)> start;
  std::function<void()> prepareLogFiles;  // of the client
  std::function<void(std::wstring_view message)> writeLog;
};

// Replaces the file `destination` by the file `source` once the process `parentPid` has ended, and
// starts it. One wait, one pause, one attempt; each outcome is one line in the update log and the
// exit code that this returns. A source that may not be trusted changes nothing, and the old
// program is started again. Blocks for up to a minute.
//
// What is checked is what is installed: the source is read once, held meanwhile, and the bytes that
// were checked are the ones that are written.
// The new program is first written whole to "<destination>.new"; then the old one is renamed to
// "<destination>.bak" and the new one to `destination`. So at any moment, whenever the process or
// the power fails, the old or the new program lies whole at `destination`, or the old one at
// "<destination>.bak". Where something that cannot be removed lies at that name, there is no
// backup: the new program then takes the old one's place in one step. A failure leaves the old
// program at `destination`. The backup goes once the disk has the new program.
int ApplyUpdate(std::uint32_t parentPid, const std::wstring& source,
                const std::wstring& destination, const ApplyPorts& ports);

// The program's own; `prepareLogFiles` is the shell's. Windows only.
ApplyPorts RealApplyPorts(const ProgramIdentity& self, std::function<void()> prepareLogFiles);

}  // namespace update
