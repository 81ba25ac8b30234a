#include "driver/filter_object.h"

#include <algorithm>
#include <charconv>

namespace driver {
namespace {

constexpr std::string_view kMark = "@LAB2_";
constexpr std::size_t kHeadBytes = 8;  // the mark and two digits
constexpr char kTest = '_';            // in no filter that compiles

}  // namespace

std::string MakeFilterObject(const Filter& filter, std::string_view text) {
  constexpr char kDigits[] = "0123456789abcdef";
  const std::size_t told = filter.TestCount() % 256;
  std::string object(kMark);
  object += kDigits[told / 16];
  object += kDigits[told % 16];
  object.append(filter.TestCount(), kTest);
  return object.append(text);
}

std::optional<std::string_view> FilterTextOf(std::string_view filter) noexcept {
  if (!filter.starts_with('@')) return filter;
  if (!filter.starts_with(kMark) || filter.size() < kHeadBytes) return std::nullopt;
  std::size_t told = 0;
  const char* const end = filter.data() + kHeadBytes;
  if (std::from_chars(filter.data() + kMark.size(), end, told, 16).ptr != end) return std::nullopt;
  filter.remove_prefix(kHeadBytes);
  const std::size_t count = std::min(filter.find_first_not_of(kTest), filter.size());
  if (told == 0 || told != count) return std::nullopt;
  return filter.substr(count);
}

std::optional<Filter> CompileFilter(std::string_view filter, FilterError* error) {
  const auto text = FilterTextOf(filter);
  auto compiled = text ? Filter::Compile(*text, error) : std::nullopt;
  const bool isObject = filter.starts_with('@');
  if (!isObject || (compiled && MakeFilterObject(*compiled, *text) == filter)) return compiled;
  if (error != nullptr) *error = {"Filter object is invalid", 0};
  return std::nullopt;
}

}  // namespace driver
