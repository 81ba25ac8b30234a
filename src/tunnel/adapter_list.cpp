#include "tunnel/adapter_list.h"

#include <algorithm>

namespace tunnel {
namespace {

bool IsIgnored(std::uint32_t address) noexcept {
  return address >> 24 == 127 || address >> 16 == 0xA9FE;  // 127/8, 169.254/16
}

}  // namespace

std::vector<Ipv4Network> SelectLocalNetworks(std::span<const AdapterAddress> addresses) {
  std::vector<Ipv4Network> networks;
  for (const AdapterAddress& entry : addresses) {
    if (!entry.isAdapterUp || IsIgnored(entry.address)) continue;
    const std::uint32_t prefix = std::min<std::uint32_t>(entry.onLinkPrefix, 32);
    networks.push_back({entry.address & MaskOf(prefix), prefix});
  }
  return networks;
}

}  // namespace tunnel
