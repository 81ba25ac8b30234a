#pragma once

#include <cstddef>
#include <span>
#include <string>

namespace platform {

// The SHA-256 of `bytes` as 64 lower-case hexadecimal digits; empty when the system cannot compute
// it. Any thread. Windows only.
std::string Sha256Hex(std::span<const std::byte> bytes);

}  // namespace platform
