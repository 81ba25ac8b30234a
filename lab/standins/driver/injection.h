#pragma once

#include <cstdint>
#include <span>

#include "driver/headers.h"
#include "driver/record.h"

// What the driver answers to an injected packet before it looks at interfaces. Pure.
namespace driver {

// The Windows error codes that the interface answers with.
inline constexpr std::uint32_t kOk = 0;
inline constexpr std::uint32_t kErrorFileNotFound = 2;
inline constexpr std::uint32_t kErrorInvalidHandle = 6;
inline constexpr std::uint32_t kErrorBadCommand = 22;
inline constexpr std::uint32_t kErrorInvalidParameter = 87;
inline constexpr std::uint32_t kErrorCallNotImplemented = 120;
inline constexpr std::uint32_t kErrorInsufficientBuffer = 122;
inline constexpr std::uint32_t kErrorNoData = 232;
inline constexpr std::uint32_t kErrorOperationAborted = 995;
inline constexpr std::uint32_t kErrorServiceDoesNotExist = 1060;
inline constexpr std::uint32_t kErrorHostUnreachable = 1232;
inline constexpr std::uint32_t kErrorNoSystemResources = 1450;

// kOk, or why the packet is refused: 122 under 20 bytes or fewer than its total length, 87 not
// version 4 or a malformed header, 1450 total length 0, 87 inbound without an interface.
std::uint32_t CheckInjection(std::span<const std::uint8_t> packet, const Address& address) noexcept;

}  // namespace driver
