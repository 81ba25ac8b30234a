#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "tunnel/packets/routes.h"

namespace tunnel {

// The route mappings of a tunnel, found by address: one step for each length of prefix among them,
// which are few, however many routes there are.
//
// Threads: any number may read at once; never changes.
class RouteIndex {
 public:
  RouteIndex() = default;
  explicit RouteIndex(std::vector<RouteMapping> mappings);

  // In the order given.
  [[nodiscard]] const std::vector<RouteMapping>& Mappings() const noexcept { return mappings_; }

  // The mapping whose mapped network holds `destination`: the longest prefix, the earlier on a tie;
  // nullptr when there is none. Valid as long as the index.
  [[nodiscard]] const RouteMapping* Find(std::uint32_t destination) const noexcept;

 private:
  static constexpr std::uint32_t kNone = ~std::uint32_t{0};

  // The mappings of one prefix length: a hash table, each place with the index of a mapping, of
  // which the next free place is taken where several fall on one.
  struct Group {
    std::uint32_t prefix = 0;
    std::vector<std::uint32_t> places;  // their number is a power of two; kNone: free
  };

  void Insert(std::uint32_t index);
  [[nodiscard]] std::size_t PlaceOf(const Group& group, std::uint32_t network) const noexcept;

  std::vector<RouteMapping> mappings_;
  std::vector<Group> groups_;  // the longest prefix first
};

}  // namespace tunnel
