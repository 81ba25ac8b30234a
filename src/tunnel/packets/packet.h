#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "tunnel/packets/bytes.h"

namespace tunnel {

// One whole IPv4 packet, IP header first.
using Packet = std::vector<std::byte>;

inline constexpr std::size_t kMaxPacketBytes = 65535;
// The driver's checksum function may read this many bytes past the end of a packet whose TCP header
// announces more than it holds. Every buffer passed to that function has them behind the packet.
inline constexpr std::size_t kReadableBehindPacket = 40;
inline constexpr std::uint8_t kProtocolIcmp = 1;
inline constexpr std::uint8_t kProtocolTcp = 6;
inline constexpr std::uint8_t kProtocolUdp = 17;
inline constexpr std::uint32_t kLimitedBroadcast = 0xFFFFFFFF;  // 255.255.255.255

// Offsets and lengths within one packet, in bytes.
struct PacketLayout {
  std::size_t totalLength = 0;      // from the IP header; may be less than was captured
  std::size_t headerLength = 0;     // of the IP header
  std::size_t transportOffset = 0;  // = headerLength
  std::size_t transportMinimum = 0;
  std::uint8_t protocol = 0;  // ICMP, TCP or UDP
};

// A validated IPv4 packet (RFC 791) of ICMP, TCP or UDP with a whole transport header, read and
// changed in place. Addresses and ports are in host order. Checksums are not maintained: recompute
// them after a change.
//
// Owns: nothing; the buffer must outlive the view.
class PacketView {
 public:
  // Exactly the packet, without what follows it in the buffer.
  [[nodiscard]] std::span<std::byte> Bytes() const noexcept { return bytes_; }
  [[nodiscard]] const PacketLayout& Layout() const noexcept { return layout_; }
  [[nodiscard]] bool Is(std::uint8_t protocol) const noexcept {
    return layout_.protocol == protocol;
  }

  [[nodiscard]] std::uint32_t SourceAddress() const noexcept {
    return ReadU32Be(bytes_, kSourceOffset);
  }
  [[nodiscard]] std::uint32_t DestinationAddress() const noexcept {
    return ReadU32Be(bytes_, kDestinationOffset);
  }
  void SetSourceAddress(std::uint32_t address) const noexcept {
    WriteU32Be(bytes_, kSourceOffset, address);
  }
  void SetDestinationAddress(std::uint32_t address) const noexcept {
    WriteU32Be(bytes_, kDestinationOffset, address);
  }

  // ICMP's identifier (RFC 792, echo and timestamp messages).
  [[nodiscard]] std::uint16_t IcmpIdentifier() const noexcept {
    return ReadU16Be(bytes_, layout_.transportOffset + 4);
  }
  // For ICMP the identifier, which serves as the asking side's port.
  [[nodiscard]] std::uint16_t SourcePort() const noexcept {
    return Is(kProtocolIcmp) ? IcmpIdentifier() : ReadU16Be(bytes_, layout_.transportOffset);
  }
  // 0 for ICMP.
  [[nodiscard]] std::uint16_t DestinationPort() const noexcept {
    return Is(kProtocolIcmp) ? std::uint16_t{0} : ReadU16Be(bytes_, layout_.transportOffset + 2);
  }

  // Lowers the maximum segment size announced by a TCP SYN (RFC 9293, section 3.7.1) to 1310, so
  // that full segments still fit the tunnel. Other packets stay as they are.
  void ClampMss() const noexcept;

 private:
  static constexpr std::size_t kSourceOffset = 12;
  static constexpr std::size_t kDestinationOffset = 16;

  friend std::optional<PacketView> ValidatePacket(std::span<std::byte> buffer) noexcept;
  PacketView(std::span<std::byte> bytes, const PacketLayout& layout) noexcept
      : bytes_(bytes), layout_(layout) {}
  [[nodiscard]] std::span<std::byte> SynOptions() const noexcept;

  std::span<std::byte> bytes_;
  PacketLayout layout_;
};

// Views any bytes as a packet; empty unless the buffer starts with a valid one.
std::optional<PacketView> ValidatePacket(std::span<std::byte> buffer) noexcept;

// Whether the packet is the first fragment of several (RFC 791, section 3.1). `packet` must hold a
// whole IP header.
bool IsFirstFragment(std::span<const std::byte> packet) noexcept;

}  // namespace tunnel
