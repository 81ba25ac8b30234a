#include "update/compare_versions.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <vector>

#include "text/strings.h"

namespace update {
namespace {

constexpr std::int64_t kLargestNumber = std::numeric_limits<std::int32_t>::max();

bool IsDigit(wchar_t unit) {
  return unit >= L'0' && unit <= L'9';
}

std::vector<std::int64_t> NumbersOf(std::wstring_view version) {
  std::vector<std::int64_t> numbers;
  bool inNumber = false;
  for (const wchar_t unit : version) {
    if (!IsDigit(unit)) {
      inNumber = false;
      continue;
    }
    if (!inNumber) numbers.push_back(0);
    inNumber = true;
    numbers.back() = std::min(numbers.back() * 10 + (unit - L'0'), kLargestNumber);
  }
  return numbers;
}

}  // namespace

int CompareVersionNumbers(std::wstring_view a, std::wstring_view b) {
  std::vector<std::int64_t> numbersOfA = NumbersOf(a);
  std::vector<std::int64_t> numbersOfB = NumbersOf(b);
  const std::size_t positions = std::max(numbersOfA.size(), numbersOfB.size());
  numbersOfA.resize(positions, 0);
  numbersOfB.resize(positions, 0);
  if (numbersOfA == numbersOfB) return 0;
  return numbersOfA < numbersOfB ? -1 : 1;
}

int CompareVersions(std::wstring_view a, std::wstring_view b) {
  const int byNumbers = CompareVersionNumbers(a, b);
  if (byNumbers != 0) return byNumbers;
  return text::FoldCase(a).compare(text::FoldCase(b));
}

}  // namespace update
