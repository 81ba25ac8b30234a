#include "tunnel/packets/ipv4.h"

#include <algorithm>
#include <iterator>

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
  // Without a slash find() returns npos, and substr() the whole text.
  return text::ParseIpv4(value.substr(0, value.find(L'/')));
}

void AddressRanges::Add(const Ipv4Network& network) {
  std::uint32_t first = FirstAddress(network);
  std::uint32_t last = LastAddress(network);
  // Merge overlapping and adjacent ranges into the new one. The subtractions cannot wrap: a range
  // that starts after `first` does not start at 0, and `first` is not 0 if a range starts before
  // it.
  auto range = lastByFirst_.upper_bound(first);
  if (range != lastByFirst_.begin()) {
    const auto before = std::prev(range);
    if (before->second >= first || before->second == first - 1) range = before;
  }
  while (range != lastByFirst_.end() && (range->first <= last || range->first - 1 == last)) {
    first = std::min(first, range->first);
    last = std::max(last, range->second);
    range = lastByFirst_.erase(range);
  }
  lastByFirst_.emplace(first, last);
}

std::optional<std::uint32_t> AddressRanges::FindTaken(const Ipv4Network& network) const {
  const std::uint32_t first = FirstAddress(network);
  // Ranges are merged, so only one can reach into the network from below.
  auto range = lastByFirst_.upper_bound(first);
  if (range != lastByFirst_.begin() && std::prev(range)->second >= first) range = std::prev(range);
  if (range == lastByFirst_.end() || range->first > LastAddress(network)) return std::nullopt;
  return range->second;
}

}  // namespace tunnel
