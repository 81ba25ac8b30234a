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
  return text::ParseIpv4(value.substr(0, value.find(L'/')));
}

void AddressRanges::Add(const Ipv4Network& network) {
  std::uint32_t first = FirstAddress(network);
  std::uint32_t last = LastAddress(network);
  // Runs that overlap or touch the new one are merged into it. The subtractions cannot wrap: a run
  // that starts after `first` does not start at 0, and one that ends before it does not end at the
  // highest address.
  auto run = lastByFirst_.upper_bound(first);
  if (run != lastByFirst_.begin()) {
    const auto before = std::prev(run);
    if (before->second >= first || before->second == first - 1) run = before;
  }
  while (run != lastByFirst_.end() && (run->first <= last || run->first - 1 == last)) {
    first = std::min(first, run->first);
    last = std::max(last, run->second);
    run = lastByFirst_.erase(run);
  }
  lastByFirst_.emplace(first, last);
}

std::optional<std::uint32_t> AddressRanges::FindTaken(const Ipv4Network& network) const {
  const std::uint32_t first = FirstAddress(network);
  auto run = lastByFirst_.upper_bound(first);
  if (run != lastByFirst_.begin() && std::prev(run)->second >= first) run = std::prev(run);
  if (run == lastByFirst_.end() || run->first > LastAddress(network)) return std::nullopt;
  return run->second;
}

}  // namespace tunnel
