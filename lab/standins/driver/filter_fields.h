#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

#include "driver/filter.h"
#include "driver/filter_numbers.h"

// The names of the filter language.
namespace driver {

struct Field {
  std::string_view name;
  FieldReader read = nullptr;
  // The values that the field can have. What is compared with a number that decides the outcome
  // for all of them asks for `presence` alone, if that is known.
  std::uint64_t least = 0;
  std::uint64_t most = UINT64_MAX;
  FieldReader presence = nullptr;  // whether the packet has the field's header: 1 or 0
  unsigned indexUnitBytes = 0;     // written with [index] in such units; 0 = without
  bool isAddress = false;          // may be compared with an IPv6 address

  // The outcome of a comparison with `value` if it is the same for all that the field can be.
  [[nodiscard]] std::optional<bool> Decide(Filter::Compare compare,
                                           const WideNumber& value) const noexcept;
};

// Null for a name that the language does not have at the network layer.
const Field* FindField(std::string_view name) noexcept;
// Whether another layer has a field of this name.
bool IsFieldOfOtherLayer(std::string_view name) noexcept;

// What a test compares `field` with: a number, an address or a named constant.
std::optional<WideNumber> ParseValue(const Field& field, std::string_view text) noexcept;

// What stands between the brackets, for a field of such units: a number of units, with "b" of
// bytes; with "-" from the end.
std::optional<FieldIndex> ParseIndex(unsigned unitBytes, std::string_view text) noexcept;

}  // namespace driver
