#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "tunnel/ipv4.h"

namespace tunnel {

// One unicast IPv4 address of one network adapter, as the system lists it.
struct AdapterAddress {
  bool isAdapterUp = false;
  std::uint32_t address = 0;       // host order
  std::uint32_t onLinkPrefix = 0;  // 0..32; the system says 255 for an illegal one
};

// The networks that this computer is on: those of adapters that are up, without loopback (127/8)
// and link-local (169.254/16) addresses, in the order given. An illegal prefix counts as /32. Pure.
std::vector<Ipv4Network> SelectLocalNetworks(std::span<const AdapterAddress> addresses);

// SelectLocalNetworks of the system's adapters; empty when the system does not list them.
// Windows only. Any thread.
std::vector<Ipv4Network> CollectLocalNetworks();

}  // namespace tunnel
