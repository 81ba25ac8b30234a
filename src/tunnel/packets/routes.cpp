#include "tunnel/packets/routes.h"

#include <algorithm>
#include <bit>
#include <stdexcept>
#include <utility>

#include "text/ipv4_text.h"
#include "text/strings.h"
#include "tunnel/packets/ipv4.h"

namespace tunnel {
namespace {

constexpr Ipv4Network kNatSpace{0xAC1F0000, 16};  // 172.31.0.0/16

// Parses white space, a sign and digits at the start of `text`; 0 without digits. Empty if the
// number is not a prefix length.
std::optional<std::uint32_t> ParsePrefix(std::wstring_view text) {
  std::size_t at = 0;
  while (at < text.size() && text::IsSpace(text[at])) ++at;
  const bool isNegative = at < text.size() && text[at] == L'-';
  if (at < text.size() && (text[at] == L'-' || text[at] == L'+')) ++at;
  std::uint32_t value = 0;
  for (; at < text.size() && text[at] >= L'0' && text[at] <= L'9'; ++at) {
    value = value * 10 + static_cast<std::uint32_t>(text[at] - L'0');
    // At once, before many digits overflow the number.
    if (value > 32) return std::nullopt;
  }
  // "-0" is a prefix length of 0.
  if (isNegative && value != 0) return std::nullopt;
  return value;
}

std::optional<Ipv4Network> ParseRoute(std::wstring_view entry) {
  const std::wstring text = text::Trim(entry);
  const std::size_t slash = text.find(L'/');
  if (slash == std::wstring::npos) return std::nullopt;
  const std::wstring_view view = text;
  const std::optional<std::uint32_t> address = text::ParseIpv4(view.substr(0, slash));
  const std::optional<std::uint32_t> prefix = ParsePrefix(view.substr(slash + 1));
  if (!address || !prefix) return std::nullopt;
  return Ipv4Network{*address & MaskOf(*prefix), *prefix};
}

// Returns the first free block of the prefix's size in the NAT space. Skips each taken range as a
// whole: a /32 in a crowded space would otherwise need up to 65536 steps.
Ipv4Network AllocateSubstitute(std::uint32_t prefix, const AddressRanges& taken) {
  if (prefix >= kNatSpace.prefix) {
    Ipv4Network block{kNatSpace.network, prefix};
    while (true) {
      const std::optional<std::uint32_t> lastTaken = taken.FindTaken(block);
      if (!lastTaken) return block;
      if (*lastTaken >= LastAddress(kNatSpace)) break;
      // Continue with the block after the one that contains the last taken address.
      const std::uint32_t lastOfBlock = *lastTaken | ~MaskOf(prefix);
      // The next block would be outside the space.
      if (lastOfBlock >= LastAddress(kNatSpace)) break;
      block.network = lastOfBlock + 1;
    }
  }
  throw std::runtime_error("No available NAT mapping network was found in 172.31.0.0/16.");
}

}  // namespace

std::vector<Ipv4Network> ParseRoutes(std::span<const std::wstring> texts) {
  std::vector<Ipv4Network> routes;
  for (const std::wstring& text : texts) {
    if (const std::optional<Ipv4Network> route = ParseRoute(text)) routes.push_back(*route);
  }
  return routes;
}

std::vector<RouteMapping> BuildRouteMappings(std::span<const Ipv4Network> routes,
                                             std::span<const Ipv4Network> localNetworks) {
  AddressRanges taken;
  for (const Ipv4Network& local : localNetworks) taken.Add(local);
  std::vector<Ipv4Network> sorted(routes.begin(), routes.end());
  // Sorted, so that the order of the service's list changes no mapping.
  std::ranges::sort(sorted, [](const Ipv4Network& a, const Ipv4Network& b) {
    return a.network != b.network ? a.network < b.network : a.prefix < b.prefix;
  });

  std::vector<RouteMapping> mappings;
  for (const Ipv4Network& route : sorted) {
    const bool isNat = taken.FindTaken(route).has_value();
    const Ipv4Network mapped = isNat ? AllocateSubstitute(route.prefix, taken) : route;
    // Later routes must not overlap this one, whether substitute or not.
    taken.Add(mapped);
    mappings.push_back({route.network, route.prefix, mapped.network, mapped.prefix, isNat});
  }
  return mappings;
}

std::vector<RouteOverlap> FindOverlaps(std::span<const RouteMapping> mappings,
                                       std::span<const Ipv4Network> localNetworks) {
  std::vector<RouteOverlap> overlaps;
  for (const RouteMapping& mapping : mappings) {
    const auto touching = std::ranges::find_if(
        localNetworks, [&](const Ipv4Network& local) { return Overlaps(local, mapping.Mapped()); });
    if (touching != localNetworks.end()) overlaps.push_back({*touching, mapping.Mapped()});
  }
  return overlaps;
}

std::wstring DescribeRoutes(std::span<const RouteMapping> mappings) {
  std::vector<std::wstring> lines;
  for (const RouteMapping& mapping : mappings) {
    const std::wstring real = FormatNetwork(mapping.Real());
    lines.push_back(mapping.isNat
                        ? L"NAT模式IP " + FormatNetwork(mapping.Mapped()) + L" -> 现场真实 " + real
                        : L"直连网段 " + real);
  }
  return text::Join(lines, L"\r\n");
}

RouteIndex::RouteIndex(std::vector<RouteMapping> mappings) : mappings_(std::move(mappings)) {
  // Longest prefix first, so that the first hit of Find() is the most specific.
  for (std::uint32_t prefix = 33; prefix-- > 0;) {
    const auto count = static_cast<std::size_t>(std::ranges::count(
        mappings_, prefix, [](const RouteMapping& mapping) { return mapping.mappedPrefix; }));
    // At most half full, so that probing stays short.
    if (count > 0) groups_.push_back({prefix, std::vector(std::bit_ceil(2 * count), kNone)});
  }
  for (std::uint32_t index = 0; index < mappings_.size(); ++index) Insert(index);
}

void RouteIndex::Insert(std::uint32_t index) {
  const Ipv4Network mapped = mappings_[index].Mapped();
  const auto group = std::ranges::find(groups_, mapped.prefix, &Group::prefix);
  std::uint32_t& place = group->places[PlaceOf(*group, FirstAddress(mapped))];
  if (place == kNone) place = index;  // else an earlier one has the same network
}

// Returns the place of the mapping with that network, or the free place for it.
std::size_t RouteIndex::PlaceOf(const Group& group, std::uint32_t network) const noexcept {
  const std::size_t last = group.places.size() - 1;
  // Fibonacci hashing: networks differ in their upper bits; the multiplication mixes them
  // downwards.
  std::size_t at = (std::uint64_t{network} * 0x9E3779B97F4A7C15U) >> 40 & last;
  // Ends, because at least half of the places are free.
  while (group.places[at] != kNone &&
         FirstAddress(mappings_[group.places[at]].Mapped()) != network) {
    at = (at + 1) & last;
  }
  return at;
}

const RouteMapping* RouteIndex::Find(std::uint32_t destination) const noexcept {
  for (const Group& group : groups_) {
    const std::uint32_t index = group.places[PlaceOf(group, destination & MaskOf(group.prefix))];
    if (index != kNone) return &mappings_[index];
  }
  return nullptr;
}

}  // namespace tunnel
