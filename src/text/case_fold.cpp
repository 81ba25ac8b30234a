#include <algorithm>
#include <cstdint>
#include <iterator>

#include "text/case_fold_table.h"
#include "text/strings.h"

// A table of our own, because the C library's follows the process's locale and differs between
// systems.
namespace text {
namespace {

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

std::wstring FoldCase(std::wstring_view value) {
  std::wstring folded(value);
  std::transform(folded.begin(), folded.end(), folded.begin(), FoldUnit);
  return folded;
}

bool EqualsIgnoreCase(std::wstring_view left, std::wstring_view right) {
  return std::equal(left.begin(), left.end(), right.begin(), right.end(),
                    [](wchar_t a, wchar_t b) { return FoldUnit(a) == FoldUnit(b); });
}

}  // namespace text
