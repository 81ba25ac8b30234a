#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

// Converts IPv4 addresses between text and numbers in host order: the first octet is the most
// significant byte.
namespace text {

// Accepts a strict dotted quad, like inet_pton: four decimal octets of one to three digits, up to
// 255, without leading zeros or surrounding text. Not the system's, which differs by platform.
std::optional<std::uint32_t> ParseIpv4(std::wstring_view value);

// "192.168.1.20".
std::wstring FormatIpv4(std::uint32_t address);

}  // namespace text
