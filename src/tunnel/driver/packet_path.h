#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "platform/mutex.h"
#include "tunnel/driver/driver.h"
#include "tunnel/packets/flow_tables.h"
#include "tunnel/packets/packet.h"
#include "tunnel/packets/packet_queue.h"
#include "tunnel/packets/routes.h"

namespace tunnel {

// The way of every packet between this computer and the relay: outbound it is given the tunnel's
// and the site's addresses and queued; inbound the addresses that the asking program used are put
// back and the packet is injected on the interface that the question left by.
//
// Threads: any. The packet lock is held for the whole of one packet; the queue's and the driver's
//          locks are taken inside it, never the other way round.
// Errors:  ChecksumError, or std::runtime_error "WinDivertSend failed.".
class PacketPath {
 public:
  // Keeps both references; they must outlive it.
  PacketPath(Driver& driver, PacketQueue& queue) : driver_(driver), queue_(queue) {}

  // What to translate, from the next packet on. `tunnelAddress` in host order. Forgets all flows.
  void Configure(std::uint32_t tunnelAddress, std::vector<RouteMapping> mappings,
                 bool discoveryMode) EXCLUDES(packetLock_);

  // One captured packet, with the record that the driver gave for it; rewritten in place and copied
  // into the queue. Packets outside the mapped networks are dropped, as is what ValidatePacket
  // refuses. kReadableBehindPacket bytes behind the packet must be readable, here and below.
  void HandleOutbound(std::span<std::byte> packet, const WinDivertAddress& driverAddress)
      EXCLUDES(packetLock_);

  // One packet from the relay, any bytes; rewritten in place and injected. Dropped silently when it
  // is no tunnel packet, answers nothing, or the driver is not open.
  void HandleInbound(std::span<std::byte> packet) EXCLUDES(packetLock_);

  // Forgets all flows; at tunnel stop.
  void ClearFlows() EXCLUDES(packetLock_);

  [[nodiscard]] std::size_t FlowCount() const EXCLUDES(packetLock_);
  [[nodiscard]] std::size_t BroadcastCount() const EXCLUDES(packetLock_);

 private:
  void SendToRoute(std::span<std::byte> packet, const PacketLayout& layout,
                   const WinDivertAddress& driverAddress) REQUIRES(packetLock_);
  void BroadcastToRoutes(std::span<std::byte> packet, const PacketLayout& layout,
                         const WinDivertAddress& driverAddress) REQUIRES(packetLock_);
  const FlowEntry* FindReturn(std::span<const std::byte> packet, const PacketLayout& layout) const
      REQUIRES(packetLock_);

  Driver& driver_;
  PacketQueue& queue_;
  mutable platform::Mutex packetLock_;
  std::uint32_t tunnelAddress_ GUARDED_BY(packetLock_) = 0;
  bool discoveryMode_ GUARDED_BY(packetLock_) = false;
  RouteIndex routes_ GUARDED_BY(packetLock_);
  FlowTables tables_ GUARDED_BY(packetLock_);
};

}  // namespace tunnel
