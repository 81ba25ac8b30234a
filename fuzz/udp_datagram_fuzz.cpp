#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <vector>

#include "tunnel/packets/bytes.h"
#include "tunnel/relay/udp_datagram.h"

namespace tunnel {
namespace {

// Input: eight bytes for the program's token, then one datagram.
void Run(std::span<const std::byte> input) {
  if (input.size() < 8) return;
  const std::uint64_t token = ReadU64Be(input, 0);
  std::vector<std::byte> datagram(input.begin() + 8, input.end());
  const auto acknowledged = ParseAcknowledgement(datagram);
  if (acknowledged && (datagram.size() != 14 || *acknowledged == 0)) std::abort();
  const auto packet = ParseUdpPacket(datagram, token);
  if (!packet) return;
  if (acknowledged || token == 0 || packet->empty()) std::abort();
  std::vector<std::byte> room(kUdpHeaderBytes + packet->size());
  const auto written = WriteUdpPacket(room, token, *packet);
  // The same packet, written again, must yield the same datagram.
  if (!std::equal(written.begin(), written.end(), datagram.begin(), datagram.end())) std::abort();
}

}  // namespace
}  // namespace tunnel

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  tunnel::Run(std::as_bytes(std::span(data, size)));
  return 0;
}
