#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "tunnel/packets/bytes.h"

// Reading and changing IPv4 packets (RFC 791) in place. Pure functions over plain bytes; addresses
// and ports are in host order. Checksums are not kept: whoever changes a packet has them
// recomputed.
namespace tunnel {

// One whole IPv4 packet, IP header first.
using Packet = std::vector<std::byte>;

inline constexpr std::size_t kMaxPacketBytes = 65535;
// The driver's checksum function reads up to so many bytes past the end of a packet whose TCP
// header announces more than there is. Every buffer in which it is called has them behind the
// packet.
inline constexpr std::size_t kReadableBehindPacket = 40;
inline constexpr std::uint8_t kProtocolIcmp = 1;
inline constexpr std::uint8_t kProtocolTcp = 6;
inline constexpr std::uint8_t kProtocolUdp = 17;
inline constexpr std::uint32_t kLimitedBroadcast = 0xFFFFFFFF;  // 255.255.255.255

// Where things are in one packet; lengths in bytes.
struct PacketLayout {
  std::size_t totalLength = 0;      // as the IP header says; may be less than was captured
  std::size_t headerLength = 0;     // of the IP header
  std::size_t transportOffset = 0;  // = headerLength
  std::size_t transportMinimum = 0;
  std::uint8_t protocol = 0;  // one of the three above
};

// The layout of an IPv4 packet of ICMP, TCP or UDP with a whole transport header; nothing for
// anything else. `buffer` is any bytes.
std::optional<PacketLayout> ValidatePacket(std::span<const std::byte> buffer) noexcept;

// Whether more of the datagram follows and nothing of it came before (RFC 791, section 3.1).
// `packet` has a whole IP header.
bool IsFirstFragment(std::span<const std::byte> packet) noexcept;

// The functions below take a packet and the layout that ValidatePacket gave for it.

inline constexpr std::size_t kSourceOffset = 12;
inline constexpr std::size_t kDestinationOffset = 16;
inline constexpr std::size_t kIcmpIdentifierOffset = 4;

inline std::uint32_t SourceAddress(std::span<const std::byte> packet) noexcept {
  return ReadU32Be(packet, kSourceOffset);
}
inline std::uint32_t DestinationAddress(std::span<const std::byte> packet) noexcept {
  return ReadU32Be(packet, kDestinationOffset);
}
inline void SetSourceAddress(std::span<std::byte> packet, std::uint32_t address) noexcept {
  WriteU32Be(packet, kSourceOffset, address);
}
inline void SetDestinationAddress(std::span<std::byte> packet, std::uint32_t address) noexcept {
  WriteU32Be(packet, kDestinationOffset, address);
}

// ICMP's identifier (RFC 792, echo and timestamp messages).
inline std::uint16_t IcmpIdentifier(std::span<const std::byte> packet,
                                    const PacketLayout& layout) noexcept {
  return ReadU16Be(packet, layout.transportOffset + kIcmpIdentifierOffset);
}
// TCP's and UDP's port; for ICMP the identifier, which plays the port's role on the asking side.
inline std::uint16_t SourcePort(std::span<const std::byte> packet,
                                const PacketLayout& layout) noexcept {
  if (layout.protocol == kProtocolIcmp) return IcmpIdentifier(packet, layout);
  return ReadU16Be(packet, layout.transportOffset);
}
// TCP's and UDP's port; 0 for ICMP.
inline std::uint16_t DestinationPort(std::span<const std::byte> packet,
                                     const PacketLayout& layout) noexcept {
  if (layout.protocol == kProtocolIcmp) return 0;
  return ReadU16Be(packet, layout.transportOffset + 2);
}

// Lowers the maximum segment size that a TCP SYN announces (RFC 9293, section 3.7.1) to 1310, so
// that full segments still fit the tunnel. Leaves everything else alone.
void ClampMss(std::span<std::byte> packet, const PacketLayout& layout) noexcept;

}  // namespace tunnel
