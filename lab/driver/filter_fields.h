#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

#include "driver/filter.h"

// The names of the filter language.
namespace driver {

struct Field {
  std::string_view name;
  FieldReader read;
  bool isIndexed;  // written with [index]
};

// Null for a name that the language does not have, or that concerns IPv6 headers.
const Field* FindField(std::string_view name) noexcept;

// A number: decimal, 0x hexadecimal, dotted address (host order) or a named constant.
std::optional<std::uint32_t> ParseNumber(std::string_view text) noexcept;

}  // namespace driver
