#pragma once

#include <string>
#include <string_view>

#include "platform/computer.h"

// The log of the replacement process, which has no window: a file in the user's temporary folder,
// to which every update appends.
namespace update {

inline constexpr wchar_t kUpdateLogName[] = L"Velmarine.Update.log";

// "[YYYY-MM-DD HH:MM:SS] ", `message` and CRLF. Pure; any thread.
std::wstring UpdateLogLine(const platform::LocalTime& time, std::wstring_view message);

// Appends the line of this moment to the log, in UTF-8 behind a byte order mark. A line that cannot
// be written is lost. Windows only; any thread.
void WriteUpdateLog(std::wstring_view message);

}  // namespace update
