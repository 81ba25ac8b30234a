#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>

namespace tunnel {

// IPv4 networks. Addresses are unsigned 32-bit numbers in host order: the first dotted octet is the
// most significant byte. All functions are pure.

struct Ipv4Network {
  std::uint32_t network = 0;  // already masked with the prefix
  std::uint32_t prefix = 0;   // 0..32

  friend bool operator==(const Ipv4Network&, const Ipv4Network&) = default;
};

// The network mask of a prefix length 0..32.
constexpr std::uint32_t MaskOf(std::uint32_t prefix) noexcept {
  return prefix == 0 ? 0 : ~std::uint32_t{0} << (32 - prefix);
}
constexpr std::uint32_t FirstAddress(const Ipv4Network& network) noexcept {
  return network.network & MaskOf(network.prefix);
}
constexpr std::uint32_t LastAddress(const Ipv4Network& network) noexcept {
  return FirstAddress(network) | ~MaskOf(network.prefix);
}
constexpr bool Contains(const Ipv4Network& network, std::uint32_t address) noexcept {
  return (address & MaskOf(network.prefix)) == FirstAddress(network);
}

// Whether the two networks share at least one address.
bool Overlaps(const Ipv4Network& a, const Ipv4Network& b) noexcept;

// "192.168.1.0/24".
std::wstring FormatNetwork(const Ipv4Network& network);

// Parses an authorisation's assigned address: a dotted quad, optionally followed by "/" and a
// prefix length, which is ignored.
std::optional<std::uint32_t> ParseTunnelAddress(std::wstring_view value);

// A set of IPv4 addresses as disjoint ranges, so that look-ups stay fast however many networks it
// holds.
//
// Threads: none inside.
class AddressRanges {
 public:
  void Add(const Ipv4Network& network);

  // If any address of `network` is in the set, the last address of the first range that touches it
  // (the range may extend past the network); otherwise empty.
  [[nodiscard]] std::optional<std::uint32_t> FindTaken(const Ipv4Network& network) const;

 private:
  std::map<std::uint32_t, std::uint32_t> lastByFirst_;  // never overlapping or adjacent
};

}  // namespace tunnel
