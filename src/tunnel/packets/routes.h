#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "tunnel/packets/ipv4.h"

namespace tunnel {

// Turns the service's route texts into the mappings of the tunnel. All functions are pure.

// One target route: a real site network and the network that this computer uses for it.
struct RouteMapping {
  std::uint32_t realNetwork = 0;  // masked, host order
  std::uint32_t realPrefix = 0;
  std::uint32_t mappedNetwork = 0;  // realNetwork, or a substitute inside 172.31.0.0/16
  std::uint32_t mappedPrefix = 0;   // always realPrefix
  bool isNat = false;               // mappedNetwork is a substitute

  [[nodiscard]] Ipv4Network Real() const noexcept { return {realNetwork, realPrefix}; }
  [[nodiscard]] Ipv4Network Mapped() const noexcept { return {mappedNetwork, mappedPrefix}; }

  friend bool operator==(const RouteMapping&, const RouteMapping&) = default;
};

// Parses CIDR texts, skipping invalid ones. The prefix length is parsed leniently (white space, a
// sign, then digits up to the first other character, no digits meaning 0), because services have
// sent such texts: "10.0.0.0/24abc" is a /24. Host bits are cleared.
std::vector<Ipv4Network> ParseRoutes(std::span<const std::wstring> texts);

// Assigns each route the network under which this computer reaches it, in ascending order of
// network and then prefix length. A route that overlaps one of `localNetworks` or a network already
// assigned gets the first free block of its size in 172.31.0.0/16; all others keep their addresses.
// So mapped networks never overlap, and repeated or nested routes stay apart.
//
// Throws std::runtime_error "No available NAT mapping network was found in 172.31.0.0/16.".
std::vector<RouteMapping> BuildRouteMappings(std::span<const Ipv4Network> routes,
                                             std::span<const Ipv4Network> localNetworks);

// A network of this computer and a mapped one that share addresses.
struct RouteOverlap {
  Ipv4Network local;
  Ipv4Network mapped;
};

// Returns each mapped network with the first of `localNetworks` that overlaps it: one that this
// computer has joined since the mappings were built.
std::vector<RouteOverlap> FindOverlaps(std::span<const RouteMapping> mappings,
                                       std::span<const Ipv4Network> localNetworks);

// The text for display: one line per mapping, separated by CRLF.
std::wstring DescribeRoutes(std::span<const RouteMapping> mappings);

// Finds a tunnel's route mappings by address, in one step per distinct prefix length: few, however
// many routes there are.
//
// Threads: immutable, so any number may read at once.
class RouteIndex {
 public:
  RouteIndex() = default;
  explicit RouteIndex(std::vector<RouteMapping> mappings);

  // In the order given.
  [[nodiscard]] const std::vector<RouteMapping>& Mappings() const noexcept { return mappings_; }

  // The mapping whose mapped network contains `destination`: the longest prefix, the earlier one on
  // a tie; nullptr if there is none. Valid as long as the index.
  [[nodiscard]] const RouteMapping* Find(std::uint32_t destination) const noexcept;

 private:
  static constexpr std::uint32_t kNone = ~std::uint32_t{0};

  // The mappings of one prefix length: a hash table of indices with linear probing.
  struct Group {
    std::uint32_t prefix = 0;
    std::vector<std::uint32_t> places;  // their number is a power of two; kNone: free
  };

  void Insert(std::uint32_t index);
  [[nodiscard]] std::size_t PlaceOf(const Group& group, std::uint32_t network) const noexcept;

  std::vector<RouteMapping> mappings_;
  std::vector<Group> groups_;  // longest prefix first
};

}  // namespace tunnel
