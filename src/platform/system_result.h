#pragma once

#include <cstdint>

namespace platform {

// How a call to the system went, where the caller needs the reason of a failure.
struct SystemResult {
  bool succeeded = false;
  std::uint32_t errorCode = 0;  // the system's; 0 when it succeeded, or failed without giving one
};

}  // namespace platform
