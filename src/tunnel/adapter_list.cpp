#include "tunnel/adapter_list.h"

#include <algorithm>

namespace tunnel {
namespace {

bool IsIgnored(std::uint32_t address) noexcept {
  // Loopback (RFC 1122, section 3.2.1.3) and link-local addresses (RFC 3927) are not routed, so
  // they cannot hide a site.
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

SystemList ReadSystemList(
    const std::function<std::uint32_t(std::byte* buffer, std::uint32_t& sizeBytes)>& read) {
  constexpr int kTries = 3;
  constexpr std::uint32_t kNothingToList = 232;  // ERROR_NO_DATA
  std::uint32_t sizeBytes = 0;
  SystemList list{{}, read(nullptr, sizeBytes)};
  for (int tries = 0; list.error == kListTooLarge && tries < kTries; ++tries) {
    list.bytes.assign(sizeBytes, std::byte{0});
    list.error = read(list.bytes.data(), sizeBytes);
  }
  if (list.error != 0) list.bytes.clear();
  // A computer without addresses has an empty list; that is not a failure.
  if (list.error == kNothingToList) list.error = 0;
  return list;
}

}  // namespace tunnel
