#include <algorithm>
#include <cstdint>

#include "text/strings.h"

// The letters whose case people's names for sites differ in. A table of our own, because the C
// library's follows the process's locale and differs between systems.
namespace text {
namespace {

// Units from `first` to `last`, every `step`-th, whose lower-case form lies `distance` further on.
struct CaseRange {
  std::uint16_t first;
  std::uint16_t last;
  std::uint16_t step;
  std::uint16_t distance;
};

constexpr CaseRange kCaseRanges[] = {
    {0x0041, 0x005A, 1, 32},                           // A-Z
    {0x00C0, 0x00D6, 1, 32}, {0x00D8, 0x00DE, 1, 32},  // Latin-1 but for the multiplication sign
    {0x0386, 0x0386, 1, 38}, {0x0388, 0x038A, 1, 37},  // Greek with tonos
    {0x038C, 0x038C, 1, 64}, {0x038E, 0x038F, 1, 63},
    {0x0391, 0x03A1, 1, 32}, {0x03A3, 0x03AB, 1, 32},  // Greek
    {0x0400, 0x040F, 1, 80}, {0x0410, 0x042F, 1, 32},  // Cyrillic
    {0x0460, 0x0480, 2, 1},  {0x048A, 0x04BE, 2, 1},   // Cyrillic pairs: upper, lower, upper, ...
    {0x04C1, 0x04CD, 2, 1},  {0x04D0, 0x0522, 2, 1},
    {0x04C0, 0x04C0, 1, 15}, {0xFF21, 0xFF3A, 1, 32},  // full-width A-Z
};

wchar_t FoldUnit(wchar_t unit) {
  const auto value = static_cast<std::uint32_t>(unit);
  if (value < 0x80) return value >= 'A' && value <= 'Z' ? static_cast<wchar_t>(value + 32) : unit;
  for (const CaseRange& range : kCaseRanges) {
    if (value >= range.first && value <= range.last && (value - range.first) % range.step == 0) {
      return static_cast<wchar_t>(value + range.distance);
    }
  }
  return unit;
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
