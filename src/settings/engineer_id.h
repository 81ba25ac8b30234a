#pragma once

#include <cstdint>
#include <functional>
#include <string>

namespace settings {

// "ENG-" and a number drawn uniformly from 10000000 to 99999999, from a generator seeded anew by
// the system's random device. Any thread.
std::wstring MakeEngineerId();

// The same draw from the given source of uniform 32-bit numbers, for tests.
std::wstring MakeEngineerId(const std::function<std::uint32_t()>& random);

}  // namespace settings
