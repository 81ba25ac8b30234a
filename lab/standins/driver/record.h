#pragma once

#include <cstddef>
#include <cstdint>

// The record that travels with every packet (80 bytes, as published for every 2.x) and the
// interface's constants, as far as the stand-in knows them.
namespace driver {

struct Address {
  std::int64_t timestamp = 0;  // QueryPerformanceCounter ticks
  std::uint32_t flags = 0;     // bits 0-7 layer, 8-15 event, 16-23 see kAddress...
  std::uint32_t reserved = 0;
  std::uint32_t interfaceIndex = 0;
  std::uint32_t subInterfaceIndex = 0;
  std::uint8_t rest[56] = {};
};
static_assert(sizeof(Address) == 80 && alignof(Address) == 8);
static_assert(offsetof(Address, flags) == 8 && offsetof(Address, interfaceIndex) == 16);

inline constexpr std::uint32_t kAddressSniffed = 1U << 16;
inline constexpr std::uint32_t kAddressOutbound = 1U << 17;
inline constexpr std::uint32_t kAddressLoopback = 1U << 18;
inline constexpr std::uint32_t kAddressImpostor = 1U << 19;
inline constexpr std::uint32_t kAddressIpChecksum = 1U << 21;
inline constexpr std::uint32_t kAddressTcpChecksum = 1U << 22;
inline constexpr std::uint32_t kAddressUdpChecksum = 1U << 23;

inline constexpr int kLayerNetwork = 0;

inline constexpr std::uint64_t kFlagSniff = 1;
inline constexpr std::uint64_t kFlagDrop = 2;
inline constexpr std::uint64_t kFlagRecvOnly = 4;
inline constexpr std::uint64_t kFlagSendOnly = 8;
inline constexpr std::uint64_t kFlagNoInstall = 0x10;
inline constexpr std::uint64_t kFlagFragments = 0x20;

inline constexpr int kPriorityLimit = 30000;
inline constexpr std::size_t kMaxPacketBytes = 65535;

// Whether Open takes these at all: within +-kPriorityLimit, only known flags, none contradicting.
constexpr bool IsValidOpen(int layer, int priority, std::uint64_t flags) noexcept {
  constexpr std::uint64_t kKnown = 0x3F;
  constexpr std::uint64_t kSniffDrop = kFlagSniff | kFlagDrop;
  constexpr std::uint64_t kOneWay = kFlagRecvOnly | kFlagSendOnly;
  return layer == kLayerNetwork && priority >= -kPriorityLimit && priority <= kPriorityLimit &&
         (flags & ~kKnown) == 0 && (flags & kSniffDrop) != kSniffDrop &&
         (flags & kOneWay) != kOneWay;
}

}  // namespace driver
