#include "tunnel/driver/packet_path.h"

#include <utility>

namespace tunnel {
namespace {

FlowKey FlowKeyOf(std::span<const std::byte> packet, const PacketLayout& layout) {
  return {layout.protocol, SourceAddress(packet), SourcePort(packet, layout),
          DestinationAddress(packet), DestinationPort(packet, layout)};
}

// The key under which the outbound packet was recorded that `packet` answers.
FlowKey ReverseFlowKeyOf(std::span<const std::byte> packet, const PacketLayout& layout) {
  const bool isIcmp = layout.protocol == kProtocolIcmp;
  return {layout.protocol, DestinationAddress(packet),
          isIcmp ? IcmpIdentifier(packet, layout) : DestinationPort(packet, layout),
          SourceAddress(packet), isIcmp ? std::uint16_t{0} : SourcePort(packet, layout)};
}

BroadcastKey BroadcastKeyOf(std::span<const std::byte> packet, const PacketLayout& layout,
                            const RouteMapping& route) {
  return {route.realNetwork, route.realPrefix, DestinationPort(packet, layout),
          SourcePort(packet, layout)};
}

// Also true of 255.255.255.255. The last octet stands for a directed broadcast: masks inside the
// site are not known here.
bool LooksLikeBroadcast(std::uint32_t destination) noexcept {
  return (destination & 0xFF) == 0xFF;
}

std::uint32_t RealDestination(const RouteMapping& route, std::uint32_t addressed) noexcept {
  if (!route.isNat) return addressed;
  return FirstAddress(route.Real()) | (addressed & ~MaskOf(route.mappedPrefix));
}

}  // namespace

void PacketPath::Configure(std::uint32_t tunnelAddress, std::vector<RouteMapping> mappings,
                           bool discoveryMode) {
  const platform::MutexLock lock(packetLock_);
  tunnelAddress_ = tunnelAddress;
  routes_ = RouteIndex(std::move(mappings));
  discoveryMode_ = discoveryMode;
  tables_.Clear();
}

void PacketPath::HandleOutbound(std::span<std::byte> packet,
                                const WinDivertAddress& driverAddress) {
  const std::optional<PacketLayout> layout = ValidatePacket(packet);
  if (!layout) return;
  const std::span<std::byte> whole = packet.first(layout->totalLength);

  const platform::MutexLock lock(packetLock_);
  if (discoveryMode_ && layout->protocol == kProtocolUdp &&
      DestinationAddress(whole) == kLimitedBroadcast) {
    BroadcastToRoutes(whole, *layout, driverAddress);
  } else {
    SendToRoute(whole, *layout, driverAddress);
  }
}

void PacketPath::SendToRoute(std::span<std::byte> packet, const PacketLayout& layout,
                             const WinDivertAddress& driverAddress) {
  const std::uint32_t addressed = DestinationAddress(packet);
  const RouteMapping* route = routes_.Find(addressed);
  if (route == nullptr) return;
  const FlowEntry entry{SourceAddress(packet), addressed, driverAddress.interfaceIndex,
                        driverAddress.subInterfaceIndex};
  SetDestinationAddress(packet, RealDestination(*route, addressed));
  SetSourceAddress(packet, tunnelAddress_);
  ClampMss(packet, layout);
  driver_.RecalculateChecksums(packet);

  tables_.RecordFlow(FlowKeyOf(packet, layout), entry);
  if (layout.protocol == kProtocolUdp && LooksLikeBroadcast(DestinationAddress(packet))) {
    tables_.RecordBroadcast(BroadcastKeyOf(packet, layout, *route), entry);
  }
  queue_.EnqueueOutbound(packet);
}

void PacketPath::BroadcastToRoutes(std::span<std::byte> packet, const PacketLayout& layout,
                                   const WinDivertAddress& driverAddress) {
  const std::uint32_t localSource = SourceAddress(packet);
  SetSourceAddress(packet, tunnelAddress_);
  for (const RouteMapping& route : routes_.Mappings()) {
    if (route.realPrefix >= 31) continue;  // such a network has no broadcast address
    SetDestinationAddress(packet, LastAddress(route.Real()));
    driver_.RecalculateChecksums(packet);

    const FlowEntry entry{localSource, LastAddress(route.Mapped()), driverAddress.interfaceIndex,
                          driverAddress.subInterfaceIndex};
    tables_.RecordFlow(FlowKeyOf(packet, layout), entry);
    tables_.RecordBroadcast(BroadcastKeyOf(packet, layout, route), entry);
    queue_.EnqueueOutbound(packet);
  }
}

void PacketPath::HandleInbound(std::span<std::byte> packet) {
  if (!driver_.CanInject()) return;
  const std::optional<PacketLayout> layout = ValidatePacket(packet);
  if (!layout) return;

  const platform::MutexLock lock(packetLock_);
  const std::span<std::byte> whole = packet.first(layout->totalLength);
  const FlowEntry* entry = FindReturn(whole, *layout);
  if (entry == nullptr) return;
  SetDestinationAddress(whole, entry->localSource);
  SetSourceAddress(whole, entry->addressedDestination);
  driver_.RecalculateChecksums(whole);

  // All zero but the interface: an inbound packet, arriving where the question left.
  WinDivertAddress address;
  address.interfaceIndex = entry->interfaceIndex;
  address.subInterfaceIndex = entry->subInterfaceIndex;
  driver_.Inject(whole, address);
}

const FlowEntry* PacketPath::FindReturn(std::span<const std::byte> packet,
                                        const PacketLayout& layout) const {
  const FlowEntry* entry = tables_.FindFlow(ReverseFlowKeyOf(packet, layout));
  if (entry != nullptr || layout.protocol != kProtocolUdp) return entry;
  return tables_.FindBroadcast(SourceAddress(packet), SourcePort(packet, layout),
                               DestinationPort(packet, layout));
}

void PacketPath::ClearFlows() {
  const platform::MutexLock lock(packetLock_);
  tables_.Clear();
}

std::size_t PacketPath::FlowCount() const {
  const platform::MutexLock lock(packetLock_);
  return tables_.FlowCount();
}

std::size_t PacketPath::BroadcastCount() const {
  const platform::MutexLock lock(packetLock_);
  return tables_.BroadcastCount();
}

}  // namespace tunnel
