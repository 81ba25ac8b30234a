#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

// A packet as the driver's interface passes it: its record (80 bytes, as published for every 2.x),
// the interface's constants and error codes, and the IPv4 headers. Pure; any thread.
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

// True if Open accepts these: priority within +-kPriorityLimit, only known flags, no contradiction.
constexpr bool IsValidOpen(int layer, int priority, std::uint64_t flags) noexcept {
  constexpr std::uint64_t kKnown = 0x3F;
  constexpr std::uint64_t kSniffDrop = kFlagSniff | kFlagDrop;
  constexpr std::uint64_t kOneWay = kFlagRecvOnly | kFlagSendOnly;
  return layer == kLayerNetwork && priority >= -kPriorityLimit && priority <= kPriorityLimit &&
         (flags & ~kKnown) == 0 && (flags & kSniffDrop) != kSniffDrop &&
         (flags & kOneWay) != kOneWay;
}

inline constexpr std::uint8_t kProtocolIcmp = 1;
inline constexpr std::uint8_t kProtocolTcp = 6;
inline constexpr std::uint8_t kProtocolUdp = 17;

enum class Transport { None, Icmp, Tcp, Udp };

struct Headers {
  std::size_t headerBytes = 0;  // of the IP header, after which the transport starts
  std::size_t totalBytes = 0;   // by the IP header; may exceed the buffer
  std::uint8_t protocol = 0;
  bool moreFragments = false;
  std::uint16_t fragmentOffset = 0;  // in units of 8 bytes
  // None for later fragments, other protocols, and headers that are cut off or malformed.
  Transport transport = Transport::None;
  // The length that the transport's header states. A TCP header may state more than there is.
  std::size_t transportHeaderBytes = 0;

  [[nodiscard]] bool IsFragment() const noexcept { return moreFragments || fragmentOffset != 0; }
  // The transport header and its data, by the IP header.
  [[nodiscard]] std::size_t SegmentBytes() const noexcept { return totalBytes - headerBytes; }
  // True if the transport is known but its header runs past the segment's end.
  [[nodiscard]] bool IsTransportCut() const noexcept {
    return transport != Transport::None && transportHeaderBytes > SegmentBytes();
  }
};

// Empty if `packet` is not IPv4 or its IP header is malformed: under 20 bytes, header length under
// 20 or beyond the buffer, total length under the header length.
std::optional<Headers> ReadHeaders(std::span<const std::uint8_t> packet) noexcept;

// IPv6 packets are recognised, but not read any further.
bool IsIpv6(std::span<const std::uint8_t> packet) noexcept;

// An FNV-1a hash of the IP and transport headers, without the payload. Its values differ from those
// of the published library.
std::uint64_t HashHeaders(std::span<const std::uint8_t> packet,
                          const std::optional<Headers>& headers, std::uint64_t seed) noexcept;

// Big-endian numbers inside a packet; the caller must check the bounds.
std::uint16_t ReadU16Be(std::span<const std::uint8_t> bytes, std::size_t offset) noexcept;
std::uint32_t ReadU32Be(std::span<const std::uint8_t> bytes, std::size_t offset) noexcept;
void WriteU16Be(std::span<std::uint8_t> bytes, std::size_t offset, std::uint16_t value) noexcept;

// The Windows error codes that the interface returns.
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

// Checks an injected packet before its interface is looked up. Returns kOk or: 122 if it has fewer
// than 20 bytes or than its total length; 87 if it is not IPv4, has a malformed header or is
// inbound without an interface; 1450 if its total length is 0.
std::uint32_t CheckInjection(std::span<const std::uint8_t> packet, const Address& address) noexcept;

}  // namespace driver
