#pragma once

#include <chrono>
#include <cstdint>
#include <string>

#include "platform/system_result.h"

// Other processes, and the end of this one. Any thread.
namespace platform {

// Runs `commandLine` without a window, with no handles of ours, and waits for its end up to `wait`;
// a command that takes longer goes on by itself. False when it could not be started. What it
// returned is not looked at.
bool RunHidden(const std::wstring& commandLine, std::chrono::milliseconds wait);

// Starts the program that `commandLine` names (in quotes when its path has blanks), with no handles
// of ours, in our environment and working folder, and returns at once. The first form shows it as
// any program that a person starts, the second without a window.
SystemResult StartProgram(const std::wstring& commandLine);
SystemResult StartHiddenProgram(const std::wstring& commandLine);

// Waits until the process `processId` has ended, at most `limit`. Returns at once when there is no
// such process or it may not be waited for.
void WaitForProcessEnd(std::uint32_t processId, std::chrono::milliseconds limit);

// From here on a drive without a disk or a broken library is an error for whoever asks, not a box
// that the system shows and that blocks the asking thread. Programs started from here inherit it.
void RefuseSystemErrorBoxes() noexcept;

// Ends this process from one moment to the next, as the task manager would: its other threads stop
// where they are, no destructor runs, no library is told. That is why it can be called while they
// hold locks; an orderly exit could wait for such a lock for ever.
[[noreturn]] void EndProcessAtOnce(int exitCode) noexcept;

}  // namespace platform
