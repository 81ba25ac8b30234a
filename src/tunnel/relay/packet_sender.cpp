#include "tunnel/relay/packet_sender.h"

#include <exception>
#include <span>
#include <vector>

#include "tunnel/relay/udp_datagram.h"

namespace tunnel {
namespace {

using Payloads = std::vector<std::span<const std::byte>>;

void SendFrames(const Payloads& payloads, RelayLink& link) {
  const RelayLink::RelayPointer relay = link.Current();
  if (relay == nullptr || !relay->IsConnected()) return;
  if (!relay->SendFrames(kOpcodeBinary, payloads)) link.Drop(relay);
}

// Sends what goes by UDP and leaves in `rest` what does not. A datagram may so pass a frame that
// stood before it: the two ways to the relay keep no order between them anyway.
void SendDatagrams(std::span<const Packet> batch, UdpRelay& udp, Payloads& rest) {
  rest.clear();
  const bool isReady = udp.IsReady();
  for (const Packet& packet : batch) {
    const bool goesByUdp = isReady && packet.size() <= kMaxUdpPacketBytes;
    if (!goesByUdp || !udp.SendUdpPacket(packet)) rest.emplace_back(packet);
  }
}

}  // namespace

void SenderLoop(const TunnelFlags& flags, PacketQueue& queue, RelayLink& link,
                UdpRelay& udp) noexcept {
  std::vector<Packet> batch;
  Payloads frames;
  while (flags.KeepGoing()) {
    try {
      batch.reserve(PacketQueue::kBatchPackets);
      frames.reserve(PacketQueue::kBatchPackets);
      if (!queue.Take(batch)) return;
      SendDatagrams(batch, udp, frames);
      if (!frames.empty()) SendFrames(frames, link);
    } catch (const std::exception&) {
      // Only an exhausted memory comes this far; the packets are lost.
    }
  }
}

}  // namespace tunnel
