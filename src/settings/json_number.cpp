#include "settings/json_number.h"

#include <algorithm>
#include <charconv>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <string>
#include <system_error>

#include "text/strings.h"

namespace settings {
namespace {

bool IsDigit(wchar_t unit) {
  return unit >= L'0' && unit <= L'9';
}

std::size_t CountDigits(std::wstring_view text) {
  return static_cast<std::size_t>(std::find_if_not(text.begin(), text.end(), IsDigit) -
                                  text.begin());
}

// The units of `run` that make up its exponent, from the "e" on; 0 when it has no digits.
std::size_t CountExponent(std::wstring_view run) {
  if (run.empty() || (run[0] != L'e' && run[0] != L'E')) return 0;
  const std::size_t sign = run.size() > 1 && (run[1] == L'+' || run[1] == L'-') ? 1 : 0;
  const std::size_t digits = CountDigits(run.substr(1 + sign));
  return digits == 0 ? 0 : 1 + sign + digits;
}

// The beginning of `run` (no sign) that is a number; empty when there is none.
std::string TakeNumber(std::wstring_view run) {
  std::size_t length = CountDigits(run);
  std::size_t digits = length;
  if (length < run.size() && run[length] == L'.') {
    const std::size_t fraction = CountDigits(run.substr(length + 1));
    digits += fraction;
    length += 1 + fraction;
  }
  if (digits == 0) return {};
  length += CountExponent(run.substr(length));
  std::string number;
  for (const wchar_t unit : run.substr(0, length)) number.push_back(static_cast<char>(unit));
  return number;
}

// Whether a number that no double can hold is too large rather than too small: where its first
// significant digit stands, moved by the exponent.
bool IsHuge(const std::string& number) {
  const std::size_t e = std::min(number.find_first_of("eE"), number.size());
  const std::size_t point = std::min(number.find('.'), e);
  const std::size_t first = number.find_first_not_of("0.");
  std::int64_t magnitude = static_cast<std::int64_t>(point) - static_cast<std::int64_t>(first);
  const bool negative = e + 1 < number.size() && number[e + 1] == '-';
  std::int64_t exponent = 0;
  for (std::size_t i = e; i < number.size(); ++i) {
    const char digit = number[i];
    if (digit < '0' || digit > '9') continue;
    if (exponent < std::numeric_limits<std::int64_t>::max() / 100) {
      exponent = exponent * 10 + (digit - '0');
    }
  }
  magnitude += negative ? -exponent : exponent;
  return magnitude > 0;
}

int HexDigit(wchar_t unit) {
  if (IsDigit(unit)) return unit - L'0';
  if (unit >= L'a' && unit <= L'f') return unit - L'a' + 10;
  if (unit >= L'A' && unit <= L'F') return unit - L'A' + 10;
  return -1;
}

}  // namespace

double ParseJsonNumber(std::wstring_view run) {
  const bool negative = !run.empty() && run[0] == L'-';
  if (negative || (!run.empty() && run[0] == L'+')) run.remove_prefix(1);
  const std::string number = TakeNumber(run);
  if (number.empty()) return 0;
  double value = 0;
  const auto result = std::from_chars(number.data(), number.data() + number.size(), value);
  if (result.ec == std::errc::result_out_of_range) {
    value = IsHuge(number) ? std::numeric_limits<double>::infinity() : 0;
  }
  return negative ? -value : value;
}

wchar_t ParseHexUnit(std::wstring_view fourUnits) {
  while (!fourUnits.empty() && text::IsSpace(fourUnits[0])) fourUnits.remove_prefix(1);
  const bool negative = fourUnits.starts_with(L'-');
  if (negative || fourUnits.starts_with(L'+')) fourUnits.remove_prefix(1);
  if (fourUnits.starts_with(L"0x") || fourUnits.starts_with(L"0X")) fourUnits.remove_prefix(2);
  std::uint32_t value = 0;
  for (const wchar_t unit : fourUnits) {
    const int digit = HexDigit(unit);
    if (digit < 0) break;
    value = value << 4 | static_cast<std::uint32_t>(digit);
  }
  return static_cast<wchar_t>((negative ? 0 - value : value) & 0xFFFF);
}

}  // namespace settings
