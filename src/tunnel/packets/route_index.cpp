#include "tunnel/packets/route_index.h"

#include <algorithm>
#include <bit>
#include <utility>

namespace tunnel {

RouteIndex::RouteIndex(std::vector<RouteMapping> mappings) : mappings_(std::move(mappings)) {
  for (std::uint32_t prefix = 33; prefix-- > 0;) {
    const auto count = static_cast<std::size_t>(std::ranges::count(
        mappings_, prefix, [](const RouteMapping& mapping) { return mapping.mappedPrefix; }));
    // At most half full, so that a free place is near.
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

// Where the mapping with that network stands, or the free place where it would.
std::size_t RouteIndex::PlaceOf(const Group& group, std::uint32_t network) const noexcept {
  const std::size_t last = group.places.size() - 1;
  // Fibonacci hashing: networks differ in their upper bits, which the multiplication brings down.
  std::size_t at = (std::uint64_t{network} * 0x9E3779B97F4A7C15U) >> 40 & last;
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
