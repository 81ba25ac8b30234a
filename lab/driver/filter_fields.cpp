#include "driver/filter_fields.h"

#include <algorithm>
#include <array>
#include <charconv>

namespace driver {
namespace {

using Value = std::optional<std::uint32_t>;

template <std::uint32_t kValue>
Value Constant(const PacketView&, std::uint32_t) {
  return kValue;
}

template <std::uint32_t kBit, bool kWanted = true>
Value AddressBit(const PacketView& packet, std::uint32_t) {
  return ((packet.address.flags & kBit) != 0) == kWanted ? 1U : 0U;
}

Value InterfaceIndex(const PacketView& packet, std::uint32_t) {
  return packet.address.interfaceIndex;
}
Value SubInterfaceIndex(const PacketView& packet, std::uint32_t) {
  return packet.address.subInterfaceIndex;
}
Value Length(const PacketView& packet, std::uint32_t) {
  return static_cast<std::uint32_t>(packet.bytes.size());
}
Value HasIp(const PacketView& packet, std::uint32_t) {
  return packet.headers ? 1U : 0U;
}
Value IsFragment(const PacketView& packet, std::uint32_t) {
  return packet.headers && packet.headers->IsFragment() ? 1U : 0U;
}

template <Transport kTransport>
Value HasTransport(const PacketView& packet, std::uint32_t) {
  return packet.headers && packet.headers->transport == kTransport ? 1U : 0U;
}

// kBytes big-endian bytes at `offset`, shifted and masked.
template <unsigned kBytes>
Value ReadAt(std::span<const std::uint8_t> bytes, std::size_t offset, unsigned shift = 0,
             std::uint32_t mask = 0xFFFFFFFF) {
  if (bytes.size() < kBytes || offset > bytes.size() - kBytes) return std::nullopt;
  std::uint32_t value = 0;
  for (unsigned i = 0; i < kBytes; ++i) value = value << 8U | bytes[offset + i];
  return value >> shift & mask;
}

template <unsigned kBytes, std::size_t kOffset, unsigned kShift = 0,
          std::uint32_t kMask = 0xFFFFFFFF>
Value IpField(const PacketView& packet, std::uint32_t) {
  if (!packet.headers) return std::nullopt;
  return ReadAt<kBytes>(packet.bytes, kOffset, kShift, kMask);
}

template <Transport kTransport, unsigned kBytes, std::size_t kOffset, unsigned kShift = 0,
          std::uint32_t kMask = 0xFFFFFFFF>
Value TransportField(const PacketView& packet, std::uint32_t) {
  if (!packet.headers || packet.headers->transport != kTransport) return std::nullopt;
  return ReadAt<kBytes>(packet.bytes, packet.headers->headerBytes + kOffset, kShift, kMask);
}

// The address (at byte 12 or 16) or the port (first or second) of this host, or of the other one.
template <bool kLocal>
Value EndAddress(const PacketView& packet, std::uint32_t) {
  if (!packet.headers) return std::nullopt;
  const bool outbound = (packet.address.flags & kAddressOutbound) != 0;
  return ReadAt<4>(packet.bytes, outbound == kLocal ? 12 : 16);
}
template <bool kLocal>
Value EndPort(const PacketView& packet, std::uint32_t) {
  if (!packet.headers || (packet.headers->transport != Transport::Tcp &&
                          packet.headers->transport != Transport::Udp)) {
    return std::nullopt;
  }
  const bool outbound = (packet.address.flags & kAddressOutbound) != 0;
  return ReadAt<2>(packet.bytes, packet.headers->headerBytes + (outbound == kLocal ? 0U : 2U));
}

template <unsigned kBytes>
Value PacketBytes(const PacketView& packet, std::uint32_t index) {
  return ReadAt<kBytes>(packet.bytes, std::size_t{index} * kBytes);
}

constexpr auto kTcp = Transport::Tcp;
constexpr auto kUdp = Transport::Udp;
constexpr auto kIcmp = Transport::Icmp;

constexpr std::array kFields = {
    Field{"true", Constant<1>, false},
    Field{"false", Constant<0>, false},
    Field{"outbound", AddressBit<kAddressOutbound>, false},
    Field{"inbound", AddressBit<kAddressOutbound, false>, false},
    Field{"loopback", AddressBit<kAddressLoopback>, false},
    Field{"impostor", AddressBit<kAddressImpostor>, false},
    Field{"fragment", IsFragment, false},
    Field{"ifIdx", InterfaceIndex, false},
    Field{"subIfIdx", SubInterfaceIndex, false},
    Field{"length", Length, false},
    Field{"protocol", IpField<1, 9>, false},
    Field{"localAddr", EndAddress<true>, false},
    Field{"remoteAddr", EndAddress<false>, false},
    Field{"localPort", EndPort<true>, false},
    Field{"remotePort", EndPort<false>, false},
    Field{"packet", PacketBytes<1>, true},
    Field{"packet16", PacketBytes<2>, true},
    Field{"packet32", PacketBytes<4>, true},
    Field{"ip", HasIp, false},
    Field{"ipv6", Constant<0>, false},
    Field{"icmp", HasTransport<kIcmp>, false},
    Field{"icmpv6", Constant<0>, false},
    Field{"tcp", HasTransport<kTcp>, false},
    Field{"udp", HasTransport<kUdp>, false},
    Field{"ip.HdrLength", IpField<1, 0, 0, 0x0F>, false},
    Field{"ip.TOS", IpField<1, 1>, false},
    Field{"ip.Length", IpField<2, 2>, false},
    Field{"ip.Id", IpField<2, 4>, false},
    Field{"ip.DF", IpField<1, 6, 6, 1>, false},
    Field{"ip.MF", IpField<1, 6, 5, 1>, false},
    Field{"ip.FragOff", IpField<2, 6, 0, 0x1FFF>, false},
    Field{"ip.TTL", IpField<1, 8>, false},
    Field{"ip.Protocol", IpField<1, 9>, false},
    Field{"ip.Checksum", IpField<2, 10>, false},
    Field{"ip.SrcAddr", IpField<4, 12>, false},
    Field{"ip.DstAddr", IpField<4, 16>, false},
    Field{"icmp.Type", TransportField<kIcmp, 1, 0>, false},
    Field{"icmp.Code", TransportField<kIcmp, 1, 1>, false},
    Field{"icmp.Checksum", TransportField<kIcmp, 2, 2>, false},
    Field{"icmp.Body", TransportField<kIcmp, 4, 4>, false},
    Field{"tcp.SrcPort", TransportField<kTcp, 2, 0>, false},
    Field{"tcp.DstPort", TransportField<kTcp, 2, 2>, false},
    Field{"tcp.SeqNum", TransportField<kTcp, 4, 4>, false},
    Field{"tcp.AckNum", TransportField<kTcp, 4, 8>, false},
    Field{"tcp.HdrLength", TransportField<kTcp, 1, 12, 4>, false},
    Field{"tcp.Urg", TransportField<kTcp, 1, 13, 5, 1>, false},
    Field{"tcp.Ack", TransportField<kTcp, 1, 13, 4, 1>, false},
    Field{"tcp.Psh", TransportField<kTcp, 1, 13, 3, 1>, false},
    Field{"tcp.Rst", TransportField<kTcp, 1, 13, 2, 1>, false},
    Field{"tcp.Syn", TransportField<kTcp, 1, 13, 1, 1>, false},
    Field{"tcp.Fin", TransportField<kTcp, 1, 13, 0, 1>, false},
    Field{"tcp.Window", TransportField<kTcp, 2, 14>, false},
    Field{"tcp.Checksum", TransportField<kTcp, 2, 16>, false},
    Field{"tcp.UrgPtr", TransportField<kTcp, 2, 18>, false},
    Field{"udp.SrcPort", TransportField<kUdp, 2, 0>, false},
    Field{"udp.DstPort", TransportField<kUdp, 2, 2>, false},
    Field{"udp.Length", TransportField<kUdp, 2, 4>, false},
    Field{"udp.Checksum", TransportField<kUdp, 2, 6>, false},
};

struct NamedNumber {
  std::string_view name;
  std::uint32_t value;
};
constexpr std::array kNamedNumbers = {
    NamedNumber{"TCP", kProtocolTcp},
    NamedNumber{"UDP", kProtocolUdp},
    NamedNumber{"ICMP", kProtocolIcmp},
    NamedNumber{"ICMPV6", 58},
    NamedNumber{"TRUE", 1},
    NamedNumber{"FALSE", 0},
};

Value ParseDigits(std::string_view text, int base) noexcept {
  std::uint32_t value = 0;
  const char* end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, value, base);
  if (error != std::errc() || stop != end) return std::nullopt;
  return value;
}

Value ParseDotted(std::string_view text) noexcept {
  std::uint32_t address = 0;
  for (int i = 0; i < 4; ++i) {
    const std::size_t dot = i < 3 ? text.find('.') : text.size();
    if (dot == std::string_view::npos) return std::nullopt;
    const Value octet = ParseDigits(text.substr(0, dot), 10);
    if (!octet || *octet > 255) return std::nullopt;
    address = address << 8U | *octet;
    text.remove_prefix(std::min(dot + 1, text.size()));
  }
  return address;
}

}  // namespace

const Field* FindField(std::string_view name) noexcept {
  const auto found = std::find_if(kFields.begin(), kFields.end(),
                                  [name](const Field& field) { return field.name == name; });
  return found == kFields.end() ? nullptr : &*found;
}

std::optional<std::uint32_t> ParseNumber(std::string_view text) noexcept {
  for (const NamedNumber& number : kNamedNumbers) {
    if (number.name == text) return number.value;
  }
  if (text.starts_with("0x")) return ParseDigits(text.substr(2), 16);
  return text.find('.') == std::string_view::npos ? ParseDigits(text, 10) : ParseDotted(text);
}

}  // namespace driver
