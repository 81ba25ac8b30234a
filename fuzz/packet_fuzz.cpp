#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <vector>

#include "tunnel/driver/packet_path.h"
#include "tunnel/driver/silent_driver.h"

namespace tunnel {
namespace {

// A network of each kind; half of all addresses match, so that random packets often do.
const std::vector<RouteMapping> kMappings = {
    {0, 1, 0, 1, false},
    {0xC0A80100, 24, 0xAC1F0000, 24, true},
    {0xFFFFFFFF, 32, 0xFFFFFFFF, 32, false},
};

// Every packet for the relay must be complete and come from the tunnel address.
void CheckQueue(PacketQueue& queue, std::uint32_t tunnelAddress) {
  std::vector<Packet> batch;
  while (queue.Size() > 0) {
    if (!queue.Take(batch)) std::abort();
    for (Packet& packet : batch) {
      const std::optional<PacketView> view = ValidatePacket(packet);
      if (!view || view->Bytes().size() != packet.size()) std::abort();
      if (view->SourceAddress() != tunnelAddress) std::abort();
    }
  }
}

// Splits the input into packets: one byte for direction and length, then the packet's bytes.
void Run(std::span<const std::byte> input) {
  constexpr std::uint32_t kTunnelAddress = 0x0A630007;
  Driver driver;
  PacketQueue queue;
  PacketPath path(driver, queue);
  driver.Load(SilentDriver());
  driver.OpenInject();
  queue.Start();
  if (input.empty()) return;
  path.Configure(kTunnelAddress, kMappings, std::to_integer<int>(input[0]) % 2 == 1);
  input = input.subspan(1);
  while (!input.empty()) {
    const auto head = std::to_integer<std::size_t>(input[0]);
    input = input.subspan(1);
    const std::size_t length = std::min(input.size(), head / 2);
    Packet packet(input.begin(), input.begin() + static_cast<std::ptrdiff_t>(length));
    input = input.subspan(length);
    if (head % 2 == 0) {
      path.HandleOutbound(packet, {});
    } else {
      path.HandleInbound(packet);
    }
    CheckQueue(queue, kTunnelAddress);
  }
}

}  // namespace
}  // namespace tunnel

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t sizeBytes) {
  tunnel::Run(std::as_bytes(std::span(data, sizeBytes)));
  return 0;
}
