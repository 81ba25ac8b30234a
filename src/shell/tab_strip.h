#pragma once

#include <optional>

namespace shell {

// The page (0 or 1) whose tab of the native tab strip lies at the point, in client pixels; nothing
// outside both tabs. Pure.
std::optional<int> FindTabAt(int x, int y);

}  // namespace shell
