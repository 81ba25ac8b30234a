#pragma once

#include <cstdint>
#include <random>

namespace tunnel {

// Repeatable 32-bit numbers of the same type on every platform.
using Random = std::independent_bits_engine<std::mt19937, 32, std::uint32_t>;

}  // namespace tunnel
