#pragma once

namespace update {

// The exit code with which update_child.exe ends where the power is to fail.
inline constexpr int kCutCode = 99;

}  // namespace update
