#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

#include "driver/filter.h"

// The names of the filter language.
namespace driver {

struct Field {
  std::string_view name;
  FieldReader read = nullptr;
  // The range of the field's values. A comparison that has the same outcome for all of them becomes
  // a test of `presence`, if that is set.
  std::uint64_t least = 0;
  std::uint64_t most = UINT64_MAX;
  FieldReader presence = nullptr;  // 1 if the packet has the field's header, else 0
  unsigned indexUnitBytes = 0;     // unit of its [index]; 0 = no index
  bool isAddress = false;          // may be compared with an IPv6 address

  // The outcome of comparing with `value` if it is the same for the whole range.
  [[nodiscard]] std::optional<bool> Decide(Comparison comparison,
                                           const WideNumber& value) const noexcept;
};

// Null for a name that the network layer lacks.
const Field* FindField(std::string_view name) noexcept;
// True for a field that only other layers have.
bool IsFieldOfOtherLayer(std::string_view name) noexcept;

// The right side of a comparison with `field`: a number, an address or a named constant.
std::optional<WideNumber> ParseValue(const Field& field, std::string_view text) noexcept;

// An index between brackets: a number of units, or of bytes with a trailing "b"; a leading "-"
// counts from the end.
std::optional<FieldIndex> ParseIndex(unsigned unitBytes, std::string_view text) noexcept;

}  // namespace driver
