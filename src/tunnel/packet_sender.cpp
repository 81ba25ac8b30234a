#include "tunnel/packet_sender.h"

#include <exception>
#include <optional>
#include <span>

#include "tunnel/udp_datagram.h"

namespace tunnel {
namespace {

void SendPacket(std::span<const std::byte> packet, RelayLink& link, UdpRelay& udp) {
  if (packet.size() <= kMaxUdpPacketBytes && udp.IsReady() && udp.SendUdpPacket(packet)) return;
  const RelayLink::RelayPointer relay = link.Current();
  if (relay == nullptr || !relay->IsConnected()) return;
  if (!relay->SendFrame(kOpcodeBinary, packet)) link.Drop(relay);
}

}  // namespace

void SenderLoop(const TunnelFlags& flags, PacketQueue& queue, RelayLink& link,
                UdpRelay& udp) noexcept {
  while (flags.KeepGoing()) {
    try {
      const std::optional<Packet> packet = queue.Take();
      if (!packet) return;
      SendPacket(*packet, link, udp);
    } catch (const std::exception&) {
      // Only an exhausted memory comes this far; the packet is lost.
    }
  }
}

}  // namespace tunnel
