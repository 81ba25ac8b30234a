#pragma once

#include <memory>

#include "tunnel/driver/windivert.h"

namespace tunnel {

// A driver table for benchmarks and fuzzing that accepts everything and records nothing. Computes
// checksums with the given function, if any. Tests use FakeDriver.
inline std::unique_ptr<WinDivertApi> SilentDriver(
    decltype(WinDivertApi::calcChecksums) calcChecksums = nullptr) {
  auto api = std::make_unique<WinDivertApi>();
  api->open = [](const char*, int, std::int16_t, std::uint64_t) -> WinDivertHandle {
    static char handle = 0;
    return &handle;
  };
  api->recv = [](WinDivertHandle, void*, std::uint32_t, std::uint32_t*, WinDivertAddress*) {
    return 0;
  };
  api->send = [](WinDivertHandle, const void*, std::uint32_t, std::uint32_t*,
                 const WinDivertAddress*) { return 1; };
  api->calcChecksums = calcChecksums != nullptr ? calcChecksums
                                                : [](void*, std::uint32_t, WinDivertAddress*,
                                                     std::uint64_t) { return 1; };
  api->close = [](WinDivertHandle) { return 1; };
  api->lastError = []() -> std::uint32_t { return 0; };
  return api;
}

}  // namespace tunnel
