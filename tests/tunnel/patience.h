#pragma once

#include <chrono>

namespace tunnel {

// How long a test waits for what should come at once.
inline constexpr std::chrono::seconds kPatience{10};

}  // namespace tunnel
