#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <span>
#include <string>
#include <vector>

#include "tunnel/packets/ipv4.h"

namespace tunnel {

// One unicast IPv4 address of a network adapter, as listed by the system.
struct AdapterAddress {
  bool isAdapterUp = false;
  std::uint32_t address = 0;       // host order
  std::uint32_t onLinkPrefix = 0;  // 0..32, or 255 for an illegal prefix
};

// The networks of the adapters that are up, in the order given, without loopback (127/8) and
// link-local (169.254/16) addresses. An illegal prefix counts as /32. Pure.
std::vector<Ipv4Network> SelectLocalNetworks(std::span<const AdapterAddress> addresses);

// A list written by the system; no bytes after an error.
struct SystemList {
  std::vector<std::byte> bytes;
  std::uint32_t error = 0;  // 0: the list is complete
};

// Reads a list whose size becomes known from a first, failing call. Tries three times, as the list
// may grow between the calls. `read` fills `sizeBytes` bytes at `buffer` and returns 0, or sets
// `sizeBytes` to the required size and returns kListTooLarge, or fails with any other code.
inline constexpr std::uint32_t kListTooLarge = 111;  // ERROR_BUFFER_OVERFLOW
SystemList ReadSystemList(
    const std::function<std::uint32_t(std::byte* buffer, std::uint32_t& sizeBytes)>& read);

struct LocalNetworks {
  std::vector<Ipv4Network> networks;
  std::uint32_t error = 0;  // the system's code if the networks are unknown
};

// One network adapter with its IPv4 addresses, as listed by the system.
struct NetworkAdapter {
  std::wstring name;         // shown to the user
  std::wstring description;  // from its driver
  std::uint32_t type = 0;    // IANA's ifType: 6 Ethernet, 23 PPP, 53 virtual, 71 Wi-Fi, 131 tunnel
  std::vector<AdapterAddress> addresses;
};

struct AdapterList {
  std::vector<NetworkAdapter> adapters;
  std::uint32_t error = 0;  // the system's code if the adapters are unknown
};

// The system's adapters, including those without addresses. Windows only; any thread.
AdapterList ListAdapters();

// SelectLocalNetworks of the system's adapters. Windows only; any thread.
LocalNetworks CollectLocalNetworks();

}  // namespace tunnel
