#pragma once

#include <chrono>
#include <cstdint>
#include <string>
#include <string_view>

#include "platform/system_error.h"

// Other processes, and this one.
namespace platform {

// ---- other processes; any thread

// Runs `commandLine` without a window and without our handles, and waits for its end up to `wait`;
// a slower command keeps running. False when it could not be started. Ignores its exit code.
bool RunHidden(const std::wstring& commandLine, std::chrono::milliseconds wait);

// Starts the program in `commandLine` (quoted when its path contains blanks) without our handles,
// in our environment and working folder, and returns at once. The first form shows its window, the
// second does not.
SystemResult StartProgram(const std::wstring& commandLine);
SystemResult StartHiddenProgram(const std::wstring& commandLine);

// Waits at most `limit` for the end of the process `processId`. Returns at once when there is no
// such process or this program may not wait for it.
void WaitForProcessEnd(std::uint32_t processId, std::chrono::milliseconds limit);

// ---- this process

// From now on a drive without a disk or a broken library is an error code for the caller instead of
// a message box that blocks its thread. Programs started from now on inherit this. Any thread.
void RefuseSystemErrorBoxes() noexcept;

// Ends this process at once, as the task manager would: no destructor runs and no library is
// notified. Unlike an orderly exit it cannot wait for a lock that a stopped thread holds. Any
// thread.
[[noreturn]] void EndProcessAtOnce(int exitCode) noexcept;

// The functions below keep foreign code out of this process, which has administrator rights. Call
// each once, before there is a second thread; on a Windows that lacks the feature they do nothing.

// Restricts the search for libraries to Windows' own folder and the one set with SetDllDirectoryW:
// never the program's folder (which may be a folder of downloads), the working folder or PATH. The
// libraries that the program imports late come from Windows' folder alone.
void LimitLibrarySearch() noexcept;

// Makes Windows refuse libraries from other computers or of low integrity, prefer its own libraries
// to others of the same name, and skip those meant for every program: AppInit libraries, layered
// service providers, global hooks, old input methods.
void RefuseForeignLibraries() noexcept;

// Forbids executable memory from now on. Not for a process that hosts the browser: its library may
// need such memory.
void ForbidDynamicCode() noexcept;

// Removes the environment variables whose names begin with `prefix`, in any letter case, for this
// process and those that it starts.
void ForgetVariables(std::wstring_view prefix);

}  // namespace platform
