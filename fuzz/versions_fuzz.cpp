#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

#include "text/strings.h"
#include "text/utf8.h"
#include "update/versions.h"

namespace update {
namespace {

int Sign(int value) {
  return (value > 0) - (value < 0);
}

// The numbers in a text, digit by digit; one that is too large stays at the maximum.
std::vector<std::int64_t> Numbers(const std::wstring& version) {
  std::vector<std::int64_t> numbers;
  bool isInNumber = false;
  for (const wchar_t unit : version) {
    const bool isDigit = unit >= L'0' && unit <= L'9';
    if (isDigit && !isInNumber) numbers.push_back(0);
    if (isDigit)
      numbers.back() = std::min<std::int64_t>(numbers.back() * 10 + unit - L'0', INT32_MAX);
    isInNumber = isDigit;
  }
  return numbers;
}

int PlainCompare(const std::wstring& a, const std::wstring& b) {
  std::vector<std::int64_t> left = Numbers(a);
  std::vector<std::int64_t> right = Numbers(b);
  left.resize(std::max(left.size(), right.size()));
  right.resize(left.size());
  if (left != right) return left < right ? -1 : 1;
  const std::wstring leftText = text::FoldCase(a);
  const std::wstring rightText = text::FoldCase(b);
  return leftText == rightText ? 0 : leftText < rightText ? -1 : 1;
}

// Three versions, separated by the first two zero bytes, must be ordered consistently.
void Run(const std::string& bytes) {
  std::vector<std::wstring> versions(3);
  std::size_t start = 0;
  for (std::size_t i = 0; i < versions.size() && start <= bytes.size(); ++i) {
    const std::size_t end =
        i + 1 < versions.size() ? std::min(bytes.find('\0', start), bytes.size()) : bytes.size();
    versions[i] = text::FromUtf8(bytes.substr(start, end - start));
    start = end + 1;
  }
  const auto compare = [&](int a, int b) {
    return Sign(CompareVersions(versions[static_cast<std::size_t>(a)],
                                versions[static_cast<std::size_t>(b)]));
  };
  for (int a = 0; a < 3; ++a) {
    if (compare(a, a) != 0) std::abort();
    for (int b = 0; b < 3; ++b) {
      if (compare(a, b) != -compare(b, a)) std::abort();
      if (compare(a, b) != PlainCompare(versions[static_cast<std::size_t>(a)],
                                        versions[static_cast<std::size_t>(b)])) {
        std::abort();
      }
      for (int c = 0; c < 3; ++c) {
        if (compare(a, b) <= 0 && compare(b, c) <= 0 && compare(a, c) > 0) std::abort();
      }
    }
  }
}

}  // namespace
}  // namespace update

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t sizeBytes) {
  update::Run({reinterpret_cast<const char*>(data), sizeBytes});
  return 0;
}
