#pragma once

#include <string_view>

// What keeps other people's code out of this process, which has an administrator's rights. Each
// function is called once, before there is a second thread; one that an older Windows refuses does
// nothing. Windows only.
namespace platform {

// From here on a library is looked for in Windows' own folder and in the one that SetDllDirectoryW
// names, never beside the program (which may lie in a folder of downloads), in the working folder
// or along PATH. The libraries that the program loads when it first needs them come from Windows'
// folder alone.
void LimitLibrarySearch() noexcept;

// From here on Windows loads into this process no library from another computer or of low
// integrity, prefers its own libraries to others of their name, and leaves out what is meant to be
// loaded into every program: AppInit libraries, layered service providers, global hooks, old input
// methods.
void RefuseForeignLibraries() noexcept;

// From here on no memory of this process can be made executable. Not for a process that hosts the
// browser: whether its library does without has not been seen.
void ForbidDynamicCode() noexcept;

// Takes the environment variables whose names begin with `prefix`, in any letter case, out of this
// process and of those that it starts.
void ForgetVariables(std::wstring_view prefix);

}  // namespace platform
