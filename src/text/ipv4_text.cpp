#include "text/ipv4_text.h"

namespace text {
namespace {

bool IsDigit(wchar_t unit) noexcept {
  return unit >= L'0' && unit <= L'9';
}

// Removes and returns the octet at the front of `text`.
std::optional<std::uint32_t> TakeOctet(std::wstring_view& text) noexcept {
  std::uint32_t value = 0;
  std::size_t digits = 0;
  while (digits < text.size() && IsDigit(text[digits])) {
    if (digits > 0 && value == 0) return std::nullopt;  // leading zero: octal to inet_aton
    value = value * 10 + static_cast<std::uint32_t>(text[digits] - L'0');
    // At each digit, so that no run of digits overflows.
    if (value > 255) return std::nullopt;
    ++digits;
  }
  if (digits == 0) return std::nullopt;
  text.remove_prefix(digits);
  return value;
}

}  // namespace

std::optional<std::uint32_t> ParseIpv4(std::wstring_view value) {
  std::uint32_t address = 0;
  for (int index = 0; index < 4; ++index) {
    if (index > 0) {
      if (value.empty() || value.front() != L'.') return std::nullopt;
      value.remove_prefix(1);
    }
    const std::optional<std::uint32_t> octet = TakeOctet(value);
    if (!octet) return std::nullopt;
    address = address << 8 | *octet;
  }
  if (!value.empty()) return std::nullopt;
  return address;
}

std::wstring FormatIpv4(std::uint32_t address) {
  std::wstring text = std::to_wstring(address >> 24);
  for (const int shift : {16, 8, 0}) text += L'.' + std::to_wstring(address >> shift & 0xFF);
  return text;
}

}  // namespace text
