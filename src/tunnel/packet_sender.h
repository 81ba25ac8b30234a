#pragma once

#include "tunnel/packet_queue.h"
#include "tunnel/relay_link.h"
#include "tunnel/tunnel_flags.h"
#include "tunnel/udp_relay.h"

namespace tunnel {

// The sender thread's body: takes packets from the queue until it is stopped and sends each to the
// relay. Packets of at most kMaxUdpPacketBytes go by UDP while that is ready, and by the WebSocket
// when UDP refuses them; larger ones always by the WebSocket. Without a connection a packet is lost
// here, as on any network. A frame that fails drops the relay, which the relay thread then
// replaces.
void SenderLoop(const TunnelFlags& flags, PacketQueue& queue, RelayLink& link,
                UdpRelay& udp) noexcept;

}  // namespace tunnel
