#pragma once

namespace update {

// The exit code of update_child.exe at a simulated power cut.
inline constexpr int kCutCode = 99;

}  // namespace update
