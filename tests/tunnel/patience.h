#pragma once

#include <chrono>

namespace tunnel {

// The limit for waits that should end at once.
inline constexpr std::chrono::seconds kPatience{10};

}  // namespace tunnel
