#pragma once

#include "tunnel/packets/packet_queue.h"
#include "tunnel/packets/tunnel_flags.h"
#include "tunnel/relay/relay_link.h"
#include "tunnel/relay/udp_relay.h"

namespace tunnel {

// The sender thread's body: takes what waits in the queue until it is stopped and sends it to the
// relay. Packets of at most kMaxUdpPacketBytes go by UDP while that is ready, and by the WebSocket
// when UDP refuses them; larger ones always by the WebSocket. What goes by the WebSocket goes in
// order, each packet as a frame of its own, and what waited together in one send. Without a
// connection a packet is lost here, as on any network. A send that fails drops the relay, which the
// relay thread then replaces.
void SenderLoop(const TunnelFlags& flags, PacketQueue& queue, RelayLink& link,
                UdpRelay& udp) noexcept;

}  // namespace tunnel
