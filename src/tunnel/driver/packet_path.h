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

// Translates packets. Outbound: rewrite both addresses, queue for the relay. Inbound: restore them,
// inject on the original interface.
//
// Threads: any. The packet lock is held for the whole of one packet; the queue's and the driver's
//          locks are taken inside it, never the other way round.
// Errors:  ChecksumError, or std::runtime_error "WinDivertSend failed.".
class PacketPath {
 public:
  // Keeps both references; they must outlive it.
  PacketPath(Driver& driver, PacketQueue& queue) : driver_(driver), queue_(queue) {}

  // Applies to the next packet and all later ones. `tunnelAddress` in host order. Clears the flows.
  void Configure(std::uint32_t tunnelAddress, std::vector<RouteMapping> mappings,
                 bool discoveryMode) EXCLUDES(packetLock_);

  // Takes one captured packet with the driver's record of it, rewrites it in place and copies it
  // into the queue; drops it if no mapped network holds its destination. False, with `packet`
  // untouched, if it is not a packet that the tunnel carries (ValidatePacket). Here and below
  // kReadableBehindPacket bytes behind the packet must be readable.
  bool HandleOutbound(std::span<std::byte> packet, const WinDivertAddress& driverAddress)
      EXCLUDES(packetLock_);

  // Takes any bytes from the relay, rewrites them in place and injects them. Silently drops invalid
  // packets, packets that answer no flow, and all packets while the driver is closed.
  void HandleInbound(std::span<std::byte> packet) EXCLUDES(packetLock_);

  void ClearFlows() EXCLUDES(packetLock_);
  [[nodiscard]] std::size_t FlowCount() const EXCLUDES(packetLock_);
  [[nodiscard]] std::size_t BroadcastCount() const EXCLUDES(packetLock_);

 private:
  void SendToRoute(const PacketView& packet, const WinDivertAddress& driverAddress)
      REQUIRES(packetLock_);
  void BroadcastToRoutes(const PacketView& packet, const WinDivertAddress& driverAddress)
      REQUIRES(packetLock_);
  [[nodiscard]] const FlowEntry* FindReturn(const PacketView& packet) const REQUIRES(packetLock_);

  Driver& driver_;
  PacketQueue& queue_;
  mutable platform::Mutex packetLock_;
  std::uint32_t tunnelAddress_ GUARDED_BY(packetLock_) = 0;
  bool discoveryMode_ GUARDED_BY(packetLock_) = false;
  RouteIndex routes_ GUARDED_BY(packetLock_);
  FlowTables tables_ GUARDED_BY(packetLock_);
};

}  // namespace tunnel
