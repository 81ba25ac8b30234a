#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

// What the program remembers of its last attempt to install a forced update. A file that reports an
// older version than the service announced would otherwise replace itself for ever, at every start.
namespace update {

struct UpdateTry {
  std::wstring version;        // as the service announced it
  std::int64_t atSeconds = 0;  // since 1970, UTC
};

inline constexpr std::int64_t kSecondsBetweenTries = std::int64_t{24} * 60 * 60;

// The record as a JSON text, and back; nothing from any other text. Pure; any thread.
std::wstring UpdateTryText(const UpdateTry& record);
std::optional<UpdateTry> ParseUpdateTry(std::wstring_view text);

// Whether `last` was an attempt at `version` within the day before `nowSeconds`. A time to come,
// from a clock that was wrong, is no such attempt.
bool WasTriedWithinADay(const std::optional<UpdateTry>& last, std::wstring_view version,
                        std::int64_t nowSeconds);

}  // namespace update
