#include "tunnel/driver/packet_path.h"

#include <utility>

namespace tunnel {
namespace {

FlowKey FlowKeyOf(const PacketView& packet) {
  return {packet.Layout().protocol, packet.SourceAddress(), packet.SourcePort(),
          packet.DestinationAddress(), packet.DestinationPort()};
}

// The key of the outbound packet that `packet` answers. An ICMP answer repeats the identifier,
// which was the question's source port, so it is not swapped.
FlowKey ReverseFlowKeyOf(const PacketView& packet) {
  const bool isIcmp = packet.Is(kProtocolIcmp);
  return {packet.Layout().protocol, packet.DestinationAddress(),
          isIcmp ? packet.IcmpIdentifier() : packet.DestinationPort(), packet.SourceAddress(),
          isIcmp ? std::uint16_t{0} : packet.SourcePort()};
}

BroadcastKey BroadcastKeyOf(const PacketView& packet, const RouteMapping& route) {
  return {route.realNetwork, route.realPrefix, packet.DestinationPort(), packet.SourcePort()};
}

// Also true for 255.255.255.255. The site's own netmasks are unknown here, so any address that ends
// in 255 counts as a directed broadcast.
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
  // Flows of the earlier tunnel would restore addresses that no longer apply.
  tables_.Clear();
}

bool PacketPath::HandleOutbound(std::span<std::byte> packet,
                                const WinDivertAddress& driverAddress) {
  const std::optional<PacketView> view = ValidatePacket(packet);
  if (!view) return false;

  const platform::MutexLock lock(packetLock_);
  // With discovery off, a route of everything takes 255.255.255.255 like any other address.
  if (discoveryMode_ && view->Is(kProtocolUdp) && view->DestinationAddress() == kLimitedBroadcast) {
    BroadcastToRoutes(*view, driverAddress);
  } else {
    SendToRoute(*view, driverAddress);
  }
  return true;
}

void PacketPath::SendToRoute(const PacketView& packet, const WinDivertAddress& driverAddress) {
  const std::uint32_t addressed = packet.DestinationAddress();
  const RouteMapping* route = routes_.Find(addressed);
  if (route == nullptr) return;
  // Before the rewrite, which overwrites both addresses.
  const FlowEntry entry{packet.SourceAddress(), addressed, driverAddress.interfaceIndex,
                        driverAddress.subInterfaceIndex};
  packet.SetDestinationAddress(RealDestination(*route, addressed));
  packet.SetSourceAddress(tunnelAddress_);
  packet.ClampMss();
  // Before the flow is recorded: a packet without checksums must leave no trace.
  driver_.RecalculateChecksums(packet.Bytes());

  tables_.RecordFlow(FlowKeyOf(packet), entry);
  // Every device may answer a directed broadcast, from its own address; no flow has that address.
  if (packet.Is(kProtocolUdp) && LooksLikeBroadcast(packet.DestinationAddress())) {
    tables_.RecordBroadcast(BroadcastKeyOf(packet, *route), entry);
  }
  queue_.EnqueueOutbound(packet.Bytes());
}

void PacketPath::BroadcastToRoutes(const PacketView& packet,
                                   const WinDivertAddress& driverAddress) {
  const std::uint32_t localSource = packet.SourceAddress();
  packet.SetSourceAddress(tunnelAddress_);
  // One buffer serves all copies: the queue copies each before the next rewrite.
  for (const RouteMapping& route : routes_.Mappings()) {
    if (route.realPrefix >= 31) continue;  // such a network has no broadcast address
    packet.SetDestinationAddress(LastAddress(route.Real()));
    driver_.RecalculateChecksums(packet.Bytes());

    // Answers appear to come from the mapped broadcast address, whichever device sends them.
    const FlowEntry entry{localSource, LastAddress(route.Mapped()), driverAddress.interfaceIndex,
                          driverAddress.subInterfaceIndex};
    tables_.RecordFlow(FlowKeyOf(packet), entry);
    tables_.RecordBroadcast(BroadcastKeyOf(packet, route), entry);
    queue_.EnqueueOutbound(packet.Bytes());
  }
}

void PacketPath::HandleInbound(std::span<std::byte> packet) {
  if (!driver_.CanInject()) return;
  const std::optional<PacketView> view = ValidatePacket(packet);
  if (!view) return;

  const platform::MutexLock lock(packetLock_);
  // Points into the tables; the lock keeps it valid until the packet is injected.
  const FlowEntry* entry = FindReturn(*view);
  if (entry == nullptr) return;
  view->SetDestinationAddress(entry->localSource);
  view->SetSourceAddress(entry->addressedDestination);
  driver_.RecalculateChecksums(view->Bytes());

  // All zero except the interface: an inbound packet that arrives where the question left.
  WinDivertAddress address;
  address.interfaceIndex = entry->interfaceIndex;
  address.subInterfaceIndex = entry->subInterfaceIndex;
  driver_.Inject(view->Bytes(), address);
}

// The exact flow first; a UDP packet may instead answer a broadcast, from any host of its network.
const FlowEntry* PacketPath::FindReturn(const PacketView& packet) const {
  const FlowEntry* entry = tables_.FindFlow(ReverseFlowKeyOf(packet));
  if (entry != nullptr || !packet.Is(kProtocolUdp)) return entry;
  return tables_.FindBroadcast(packet.SourceAddress(), packet.SourcePort(),
                               packet.DestinationPort());
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
