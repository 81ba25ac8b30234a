#include "text/strings.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <iterator>

#include "text/case_fold_table.h"
#include "text/utf8.h"

namespace text {
namespace {

// A table of our own: the C library's follows the process's locale and differs between systems.
static_assert(std::ranges::is_sorted(kCaseRanges, {}, &CaseRange::first));

wchar_t FoldUnit(wchar_t unit) {
  const auto value = static_cast<std::uint32_t>(unit);
  if (value < 0x80) return value >= 'A' && value <= 'Z' ? static_cast<wchar_t>(value + 32) : unit;
  const auto after = std::ranges::upper_bound(kCaseRanges, value, {}, &CaseRange::first);
  const CaseRange& range = *std::prev(after);  // the first one begins below 0x80
  if (value > range.last || (value - range.first) % range.step != 0) return unit;
  return static_cast<wchar_t>((value + range.distance) & 0xFFFF);
}

}  // namespace

bool IsSpace(wchar_t unit) noexcept {
  const auto value = static_cast<std::uint32_t>(unit);
  if (value < 0x80) return value == ' ' || (value >= '\t' && value <= '\r');
  switch (value) {
    case 0x0085:  // next line
    case 0x00A0:  // no-break space
    case 0x1680:  // Ogham space mark
    case 0x2028:  // line separator
    case 0x2029:  // paragraph separator
    case 0x202F:  // narrow no-break space
    case 0x205F:  // medium mathematical space
    case 0x3000:  // ideographic space
      return true;
    default:
      return value >= 0x2000 && value <= 0x200A;  // en quad to hair space
  }
}

std::wstring Trim(std::wstring_view value) {
  const auto first = std::find_if_not(value.begin(), value.end(), IsSpace);
  const auto last = std::find_if_not(value.rbegin(), value.rend(), IsSpace).base();
  return first < last ? std::wstring(first, last) : std::wstring();
}

std::wstring FoldCase(std::wstring_view value) {
  std::wstring folded(value);
  std::transform(folded.begin(), folded.end(), folded.begin(), FoldUnit);
  return folded;
}

bool EqualsIgnoreCase(std::wstring_view left, std::wstring_view right) {
  return std::equal(left.begin(), left.end(), right.begin(), right.end(),
                    [](wchar_t a, wchar_t b) { return FoldUnit(a) == FoldUnit(b); });
}

std::vector<std::wstring> SplitLines(std::wstring_view value) {
  std::vector<std::wstring> lines;
  while (!value.empty()) {
    const std::size_t end = std::min(value.find_first_of(L"\r\n"), value.size());
    if (end > 0) lines.emplace_back(value.substr(0, end));
    value.remove_prefix(std::min(end + 1, value.size()));
  }
  return lines;
}

std::wstring Join(std::span<const std::wstring> parts, std::wstring_view separator) {
  std::wstring joined;
  for (const std::wstring& part : parts) {
    if (&part != parts.data()) joined += separator;
    joined += part;
  }
  return joined;
}

std::wstring PercentEncode(std::wstring_view component) {
  constexpr std::string_view kKept =
      "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-._~";
  constexpr wchar_t kDigits[] = L"0123456789ABCDEF";
  std::wstring encoded;
  for (const char byte : ToUtf8(component)) {
    const auto value = static_cast<std::uint8_t>(byte);
    if (kKept.find(byte) != std::string_view::npos) {
      encoded.push_back(static_cast<wchar_t>(value));
    } else {
      encoded += {L'%', kDigits[value >> 4], kDigits[value & 0xF]};
    }
  }
  return encoded;
}

}  // namespace text
