#pragma once

#include <cstdint>
#include <map>
#include <optional>

#include "tunnel/packets/ipv4.h"

namespace tunnel {

// A set of IPv4 addresses, kept as disjoint ranges, so that asking what is taken stays quick
// however many networks are in it.
//
// Threads: none inside.
class AddressRanges {
 public:
  void Add(const Ipv4Network& network);

  // Where the addresses of `network` are taken, the last address of the first taken run that it
  // touches (the run may reach past the network); nothing when all are free.
  [[nodiscard]] std::optional<std::uint32_t> FindTaken(const Ipv4Network& network) const;

 private:
  std::map<std::uint32_t, std::uint32_t> lastByFirst_;  // runs: neither overlapping nor adjacent
};

}  // namespace tunnel
