#pragma once

#include <cstdint>

namespace platform {

// How a call to the system went, where the caller needs the reason of a failure.
struct SystemResult {
  bool succeeded = false;
  // The system's; 0 when it succeeded, or failed without giving one. Only a function that says so
  // returns a success with a code.
  std::uint32_t errorCode = 0;
};

}  // namespace platform
