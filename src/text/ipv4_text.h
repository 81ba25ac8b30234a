#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

// IPv4 addresses as text; as numbers they are in host order, the first octet the most significant
// byte.
namespace text {

// A strict dotted quad, as inet_pton takes it: four decimal octets of one to three digits, none
// above 255, none with a leading zero, nothing around them. Own code, so that every platform
// agrees.
std::optional<std::uint32_t> ParseIpv4(std::wstring_view value);

// "192.168.1.20".
std::wstring FormatIpv4(std::uint32_t address);

}  // namespace text
