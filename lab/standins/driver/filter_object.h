#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "driver/filter.h"

// The form of a filter that CompileFilter() gives a program to keep, and that every function takes
// in place of the text. Its first character is "@", the first 8 hold the number of tests as two
// digits, and each test is one "_" behind them. What follows is the text.
namespace driver {

// `filter` as compiled from `text`. Of 256 tests the two digits say 0, as the published library's
// 8 bits do.
std::string MakeFilterObject(const Filter& filter, std::string_view text);

// The text in an object; `filter` itself when it is no object. Nothing for an object that says
// another number of tests than it has, or none.
std::optional<std::string_view> FilterTextOf(std::string_view filter) noexcept;

// As Filter::Compile(), of a text or an object.
std::optional<Filter> CompileFilter(std::string_view filter, FilterError* error = nullptr);

}  // namespace driver
