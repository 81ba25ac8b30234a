#include "tunnel/packets/ipv4.h"

#include "text/ipv4_text.h"

namespace tunnel {
bool Overlaps(const Ipv4Network& a, const Ipv4Network& b) noexcept {
  if (FirstAddress(a) > LastAddress(b)) return false;
  return FirstAddress(b) <= LastAddress(a);
}

std::wstring FormatNetwork(const Ipv4Network& network) {
  return text::FormatIpv4(network.network) + L'/' + std::to_wstring(network.prefix);
}

std::optional<std::uint32_t> ParseTunnelAddress(std::wstring_view value) {
  return text::ParseIpv4(value.substr(0, value.find(L'/')));
}

}  // namespace tunnel
