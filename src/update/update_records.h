#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "platform/computer.h"

// The two records that updates leave on the disk. The functions without a note are pure; any
// thread.
namespace update {

// The last attempt to install a forced update. Without it, a file that reports an older version
// than the service announced would replace itself at every start.
struct UpdateTry {
  std::wstring version;        // as the service announced it
  std::int64_t atSeconds = 0;  // since 1970, UTC
};

inline constexpr std::int64_t kSecondsBetweenTries = std::int64_t{24} * 60 * 60;

// The record as a JSON text, and back; empty for any other text.
std::wstring UpdateTryText(const UpdateTry& record);
std::optional<UpdateTry> ParseUpdateTry(std::wstring_view text);

// Whether `last` was an attempt at `version` within the day before `nowSeconds`. An attempt in the
// future, made while the clock was wrong, does not count.
bool WasTriedWithinADay(const std::optional<UpdateTry>& last, std::wstring_view version,
                        std::int64_t nowSeconds);

// The log of the replacement process, which has no window: a file in the user's temporary folder to
// which every update appends.
inline constexpr wchar_t kUpdateLogName[] = L"Velmarine.Update.log";

// "[YYYY-MM-DD HH:MM:SS] ", `message` and CRLF.
std::wstring UpdateLogLine(const platform::LocalTime& time, std::wstring_view message);

// Appends a line with the current time to the log, in UTF-8 after a byte-order mark. A line that
// cannot be written is lost. Windows only.
void WriteUpdateLog(std::wstring_view message);

}  // namespace update
