#pragma once

#include <compare>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

// The numbers of the filter language, and IP addresses as text. Pure.
namespace driver {

// Unsigned, 128 bits: the width in which a filter compares.
struct WideNumber {
  std::uint64_t high = 0;
  std::uint64_t low = 0;
  friend auto operator<=>(const WideNumber&, const WideNumber&) = default;
};

// An IPv4 address as an IPv6 one, ::ffff:a.b.c.d (RFC 4291, section 2.5.5.2): no plain number that
// fits into 32 bits is equal to one.
inline constexpr std::uint64_t kIpv4Prefix = std::uint64_t{0xFFFF} << 32U;
constexpr WideNumber WideIpv4(std::uint32_t address) noexcept {
  return {0, kIpv4Prefix | address};
}

// A decimal or 0x hexadecimal number of up to 128 bits.
std::optional<WideNumber> ParsePlainNumber(std::string_view text) noexcept;
// Dotted decimal, four parts; host order.
std::optional<std::uint32_t> ParseIpv4(std::string_view text) noexcept;
// Groups of up to four hexadecimal digits, "::" once, the last two groups perhaps dotted.
std::optional<WideNumber> ParseIpv6(std::string_view text) noexcept;
std::string FormatIpv4(std::uint32_t address);

}  // namespace driver
