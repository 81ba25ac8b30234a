#include "driver/filter_fields.h"

#include <algorithm>
#include <array>

#include "driver/filter_readers.h"

namespace driver {
namespace {

using namespace readers;

constexpr auto kTcp = Transport::Tcp;
constexpr auto kUdp = Transport::Udp;
constexpr auto kIcmp = Transport::Icmp;

constexpr std::uint64_t MostOf(unsigned bytes) {
  return (std::uint64_t{1} << 8U * bytes) - 1;
}

constexpr Field Plain(std::string_view name, FieldReader read) {
  return {.name = name, .read = read};
}

constexpr Field Indexed(std::string_view name, FieldReader read, unsigned unitBytes) {
  return {.name = name, .read = read, .indexUnitBytes = unitBytes};
}

template <unsigned kBytes, std::size_t kOffset, unsigned kShift = 0,
          std::uint64_t kMask = MostOf(kBytes)>
constexpr Field Ip(std::string_view name) {
  return {.name = name,
          .read = IpField<kBytes, kOffset, kShift, kMask>,
          .most = kMask,
          .presence = HasIp};
}

template <std::size_t kOffset>
constexpr Field IpAddressAt(std::string_view name) {
  return {.name = name,
          .read = IpAddress<kOffset>,
          .least = kIpv4Prefix,
          .most = kIpv4Prefix | MostOf(4),
          .presence = HasIp};
}

template <Transport kTransport, unsigned kBytes, std::size_t kOffset, unsigned kShift = 0,
          std::uint64_t kMask = MostOf(kBytes)>
constexpr Field Of(std::string_view name) {
  return {.name = name,
          .read = TransportField<kTransport, kBytes, kOffset, kShift, kMask>,
          .most = kMask,
          .presence = HasTransport<kTransport>};
}

template <Transport kTransport>
constexpr Field PayloadLengthOf(std::string_view name) {
  return {.name = name,
          .read = PayloadLength<kTransport>,
          .most = kMaxPacketBytes,
          .presence = HasTransport<kTransport>};
}

// These compile, but no packet has a value for them.
constexpr Field Ipv6(std::string_view name, std::uint64_t most) {
  return {.name = name, .read = Absent, .most = most, .presence = HasIpv6};
}
constexpr Field Ipv6Address(std::string_view name) {
  return {.name = name, .read = Absent, .isAddress = true};
}
constexpr Field Icmpv6(std::string_view name, unsigned bytes) {
  return {.name = name, .read = Absent, .most = MostOf(bytes), .presence = Constant<0>};
}

constexpr std::array kFields = {
    Plain("true", Constant<1>),
    Plain("false", Constant<0>),
    Plain("zero", Constant<0>),
    Plain("timestamp", Timestamp),
    Plain("event", Event),
    Plain("outbound", RecordBit<kAddressOutbound>),
    Plain("inbound", RecordBit<kAddressOutbound, false>),
    Plain("loopback", RecordBit<kAddressLoopback>),
    Plain("impostor", RecordBit<kAddressImpostor>),
    Plain("fragment", IsFragment),
    Plain("ifIdx", InterfaceIndex),
    Plain("subIfIdx", SubInterfaceIndex),
    Plain("random8", Random<MostOf(1)>),
    Plain("random16", Random<MostOf(2)>),
    Plain("random32", Random<MostOf(4)>),
    Plain("length", Length),
    Plain("protocol", IpField<1, 9, 0, MostOf(1)>),
    Field{.name = "localAddr", .read = EndAddress<true>, .isAddress = true},
    Field{.name = "remoteAddr", .read = EndAddress<false>, .isAddress = true},
    Plain("localPort", EndPort<true>),
    Plain("remotePort", EndPort<false>),
    Indexed("packet", PacketBytes<1>, 1),
    Indexed("packet16", PacketBytes<2>, 2),
    Indexed("packet32", PacketBytes<4>, 4),
    Plain("ip", HasIp),
    Plain("ipv6", HasIpv6),
    Plain("icmp", HasTransport<kIcmp>),
    Plain("icmpv6", Constant<0>),
    Plain("tcp", HasTransport<kTcp>),
    Plain("udp", HasTransport<kUdp>),
    Ip<1, 0, 0, 0x0F>("ip.HdrLength"),
    Ip<1, 1>("ip.TOS"),
    Ip<2, 2>("ip.Length"),
    Ip<2, 4>("ip.Id"),
    Ip<1, 6, 6, 1>("ip.DF"),
    Ip<1, 6, 5, 1>("ip.MF"),
    Ip<2, 6, 0, 0x1FFF>("ip.FragOff"),
    Ip<1, 8>("ip.TTL"),
    Ip<1, 9>("ip.Protocol"),
    Ip<2, 10>("ip.Checksum"),
    IpAddressAt<12>("ip.SrcAddr"),
    IpAddressAt<16>("ip.DstAddr"),
    Ipv6("ipv6.TrafficClass", MostOf(1)),
    Ipv6("ipv6.FlowLabel", 0xFFFFF),
    Ipv6("ipv6.Length", MostOf(2)),
    Ipv6("ipv6.NextHdr", MostOf(1)),
    Ipv6("ipv6.HopLimit", MostOf(1)),
    Ipv6Address("ipv6.SrcAddr"),
    Ipv6Address("ipv6.DstAddr"),
    Of<kIcmp, 1, 0>("icmp.Type"),
    Of<kIcmp, 1, 1>("icmp.Code"),
    Of<kIcmp, 2, 2>("icmp.Checksum"),
    Of<kIcmp, 4, 4>("icmp.Body"),
    Icmpv6("icmpv6.Type", 1),
    Icmpv6("icmpv6.Code", 1),
    Icmpv6("icmpv6.Checksum", 2),
    Icmpv6("icmpv6.Body", 4),
    Of<kTcp, 2, 0>("tcp.SrcPort"),
    Of<kTcp, 2, 2>("tcp.DstPort"),
    Of<kTcp, 4, 4>("tcp.SeqNum"),
    Of<kTcp, 4, 8>("tcp.AckNum"),
    Of<kTcp, 1, 12, 4, 0x0F>("tcp.HdrLength"),
    Of<kTcp, 1, 13, 5, 1>("tcp.Urg"),
    Of<kTcp, 1, 13, 4, 1>("tcp.Ack"),
    Of<kTcp, 1, 13, 3, 1>("tcp.Psh"),
    Of<kTcp, 1, 13, 2, 1>("tcp.Rst"),
    Of<kTcp, 1, 13, 1, 1>("tcp.Syn"),
    Of<kTcp, 1, 13, 0, 1>("tcp.Fin"),
    Of<kTcp, 2, 14>("tcp.Window"),
    Of<kTcp, 2, 16>("tcp.Checksum"),
    Of<kTcp, 2, 18>("tcp.UrgPtr"),
    PayloadLengthOf<kTcp>("tcp.PayloadLength"),
    Indexed("tcp.Payload", PayloadBytes<kTcp, 1>, 1),
    Indexed("tcp.Payload16", PayloadBytes<kTcp, 2>, 2),
    Indexed("tcp.Payload32", PayloadBytes<kTcp, 4>, 4),
    Of<kUdp, 2, 0>("udp.SrcPort"),
    Of<kUdp, 2, 2>("udp.DstPort"),
    Of<kUdp, 2, 4>("udp.Length"),
    Of<kUdp, 2, 6>("udp.Checksum"),
    PayloadLengthOf<kUdp>("udp.PayloadLength"),
    Indexed("udp.Payload", PayloadBytes<kUdp, 1>, 1),
    Indexed("udp.Payload16", PayloadBytes<kUdp, 2>, 2),
    Indexed("udp.Payload32", PayloadBytes<kUdp, 4>, 4),
};

constexpr std::array<std::string_view, 5> kOtherLayers = {"endpointId", "parentEndpointId",
                                                          "processId", "layer", "priority"};

struct NamedNumber {
  std::string_view name;
  std::uint64_t value;
};
constexpr std::array kNamedNumbers = {
    NamedNumber{"TCP", kProtocolTcp},
    NamedNumber{"UDP", kProtocolUdp},
    NamedNumber{"ICMP", kProtocolIcmp},
    NamedNumber{"ICMPV6", 58},
    NamedNumber{"TRUE", 1},
    NamedNumber{"FALSE", 0},
    NamedNumber{"PACKET", 0},
};

}  // namespace

std::optional<bool> Field::Decide(Comparison comparison, const WideNumber& value) const noexcept {
  const bool isBelow = value < WideNumber{0, least};
  const bool isAbove = value > WideNumber{0, most};
  const bool isLeast = value == WideNumber{0, least};
  const bool isMost = value == WideNumber{0, most};
  const auto decided = [](bool always, bool never) {
    return always || never ? std::optional<bool>(always) : std::nullopt;
  };
  switch (comparison) {
    case Comparison::Equal:
      return decided(false, isBelow || isAbove);
    case Comparison::NotEqual:
      return decided(isBelow || isAbove, false);
    case Comparison::Less:
      return decided(isAbove, isBelow || isLeast);
    case Comparison::LessOrEqual:
      return decided(isAbove || isMost, isBelow);
    case Comparison::Greater:
      return decided(isBelow, isAbove || isMost);
    case Comparison::GreaterOrEqual:
      return decided(isBelow || isLeast, isAbove);
  }
  return std::nullopt;
}

const Field* FindField(std::string_view name) noexcept {
  const auto found = std::find_if(kFields.begin(), kFields.end(),
                                  [name](const Field& field) { return field.name == name; });
  return found == kFields.end() ? nullptr : &*found;
}

bool IsFieldOfOtherLayer(std::string_view name) noexcept {
  return std::find(kOtherLayers.begin(), kOtherLayers.end(), name) != kOtherLayers.end();
}

std::optional<WideNumber> ParseValue(const Field& field, std::string_view text) noexcept {
  for (const NamedNumber& number : kNamedNumbers) {
    if (number.name == text) return WideNumber{0, number.value};
  }
  if (const auto address = ParseIpv4(text)) return WideIpv4(*address);
  if (text.find(':') == std::string_view::npos) return ParsePlainNumber(text);
  return field.isAddress ? ParseIpv6(text) : std::nullopt;
}

std::optional<FieldIndex> ParseIndex(unsigned unitBytes, std::string_view text) noexcept {
  FieldIndex index;
  index.isFromEnd = text.starts_with('-');
  if (index.isFromEnd) text.remove_prefix(1);
  const bool isInBytes = text.ends_with('b') && !text.starts_with("0x");
  if (isInBytes) text.remove_suffix(1);
  const auto number = ParsePlainNumber(text);
  if (!number || *number > WideNumber{0, kMaxPacketBytes}) return std::nullopt;
  index.bytes = static_cast<std::uint32_t>(number->low) * (isInBytes ? 1 : unitBytes);
  return index;
}

}  // namespace driver
