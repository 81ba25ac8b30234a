#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <span>
#include <string>
#include <vector>

#include "tunnel/packets/ipv4.h"

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

// A list that the system writes into a buffer of the caller's; with an error, no bytes.
struct SystemList {
  std::vector<std::byte> bytes;
  std::uint32_t error = 0;  // 0: the list is whole
};

// Reads a list whose size the system tells when the buffer is too small. It may have grown when it
// is asked for again: three tries. `read` fills `sizeBytes` bytes at `buffer`, or sets `sizeBytes`
// to what is needed and returns kListTooLarge, or fails with any other code; 0 is success.
inline constexpr std::uint32_t kListTooLarge = 111;  // ERROR_BUFFER_OVERFLOW
SystemList ReadSystemList(
    const std::function<std::uint32_t(std::byte* buffer, std::uint32_t& sizeBytes)>& read);

struct LocalNetworks {
  std::vector<Ipv4Network> networks;
  std::uint32_t error = 0;  // why the system does not list them
};

// One network adapter with its IPv4 addresses, as the system lists it.
struct NetworkAdapter {
  std::wstring name;         // as the user knows it
  std::wstring description;  // as its driver calls it
  std::uint32_t type = 0;    // IANA's ifType: 6 Ethernet, 23 PPP, 53 virtual, 71 Wi-Fi, 131 tunnel
  std::vector<AdapterAddress> addresses;
};

struct AdapterList {
  std::vector<NetworkAdapter> adapters;
  std::uint32_t error = 0;  // why the system does not list them
};

// The system's adapters, those without addresses too. Windows only. Any thread.
AdapterList ListAdapters();

// SelectLocalNetworks of the system's adapters; none when the system does not list them. Windows
// only. Any thread.
LocalNetworks CollectLocalNetworks();

}  // namespace tunnel
