#pragma once

#include <string>

namespace update {

// The exit code of the apply-update mode while it is not built.
inline constexpr int kApplyUpdateNotBuilt = 1;

// Replacing the program's file `destination` by `source` once the process `parentPid` has ended.
// Not built yet: touches neither file nor process and returns kApplyUpdateNotBuilt, the exit code
// for the process that was started for it.
int ApplyUpdate(unsigned long parentPid, const std::wstring& source,
                const std::wstring& destination);

}  // namespace update
