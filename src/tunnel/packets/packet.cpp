#include "tunnel/packets/packet.h"

namespace tunnel {
namespace {

// RFC 791, section 3.1.
constexpr std::size_t kIpv4MinHeaderBytes = 20;
constexpr std::size_t kTotalLengthOffset = 2;
constexpr std::size_t kFragmentOffset = 6;
constexpr std::uint16_t kMoreFragments = 0x2000;
constexpr std::uint16_t kFragmentPlace = 0x1FFF;
constexpr std::size_t kProtocolOffset = 9;

// RFC 9293, sections 3.1 and 3.2.
constexpr std::size_t kTcpMinHeaderBytes = 20;
constexpr std::size_t kTcpDataOffset = 12;
constexpr std::size_t kTcpFlagsOffset = 13;
constexpr std::uint8_t kTcpSyn = 0x02;
constexpr std::uint8_t kOptionEnd = 0;
constexpr std::uint8_t kOptionNoOperation = 1;
constexpr std::uint8_t kOptionMss = 2;
constexpr std::size_t kOptionMssBytes = 4;
constexpr std::uint16_t kMaxMss = 1310;

std::size_t TransportMinimum(std::uint8_t protocol) noexcept {
  switch (protocol) {
    case kProtocolIcmp:
    case kProtocolUdp:
      return 8;
    case kProtocolTcp:
      return kTcpMinHeaderBytes;
    default:
      return 0;  // not carried by the tunnel
  }
}

}  // namespace

std::optional<PacketView> ValidatePacket(std::span<std::byte> buffer) noexcept {
  if (buffer.size() < kIpv4MinHeaderBytes || ReadU8(buffer, 0) >> 4 != 4) return std::nullopt;
  PacketLayout layout;
  // The header counts its length in units of four bytes.
  layout.headerLength = (std::size_t{ReadU8(buffer, 0)} & 0x0F) * 4;
  if (layout.headerLength < kIpv4MinHeaderBytes || layout.headerLength > buffer.size()) {
    return std::nullopt;
  }
  layout.totalLength = ReadU16Be(buffer, kTotalLengthOffset);
  // A capture may carry padding behind the packet, but never less than the header announces.
  if (layout.totalLength < layout.headerLength || layout.totalLength > buffer.size()) {
    return std::nullopt;
  }
  layout.transportOffset = layout.headerLength;
  layout.protocol = ReadU8(buffer, kProtocolOffset);
  layout.transportMinimum = TransportMinimum(layout.protocol);
  if (layout.transportMinimum == 0) return std::nullopt;
  // Ports, identifier and TCP flags are later read without a further check.
  if (layout.totalLength - layout.headerLength < layout.transportMinimum) return std::nullopt;
  return PacketView(buffer.first(layout.totalLength), layout);
}

bool IsFirstFragment(std::span<const std::byte> packet) noexcept {
  const std::uint16_t fragment = ReadU16Be(packet, kFragmentOffset);
  // More fragments follow, and this one starts at offset 0.
  return (fragment & (kMoreFragments | kFragmentPlace)) == kMoreFragments;
}

// The options of a SYN; empty for any other packet and for an impossible data offset.
std::span<std::byte> PacketView::SynOptions() const noexcept {
  if (!Is(kProtocolTcp)) return {};
  const std::span<std::byte> segment = bytes_.subspan(layout_.transportOffset);
  if ((ReadU8(segment, kTcpFlagsOffset) & kTcpSyn) == 0) return {};
  const std::size_t dataOffset = std::size_t{ReadU8(segment, kTcpDataOffset)} >> 4 << 2;
  // Options end where the data starts; anything beyond must not be read as an option.
  if (dataOffset < kTcpMinHeaderBytes || dataOffset > segment.size()) return {};
  return segment.subspan(kTcpMinHeaderBytes, dataOffset - kTcpMinHeaderBytes);
}

void PacketView::ClampMss() const noexcept {
  std::span<std::byte> options = SynOptions();
  while (!options.empty()) {
    const std::uint8_t kind = ReadU8(options, 0);
    if (kind == kOptionEnd) return;
    // Only these two options consist of their kind alone; all others carry a length.
    if (kind == kOptionNoOperation) {
      options = options.subspan(1);
      continue;
    }
    // A malformed option makes the rest unreadable; the packet then keeps its MSS.
    if (options.size() < 2) return;
    const std::size_t length = ReadU8(options, 1);
    if (length < 2 || length > options.size()) return;
    if (kind == kOptionMss && length == kOptionMssBytes) {
      if (ReadU16Be(options, 2) > kMaxMss) WriteU16Be(options, 2, kMaxMss);
      return;
    }
    // `length` is at least 2 here, so the loop always ends.
    options = options.subspan(length);
  }
}

}  // namespace tunnel
