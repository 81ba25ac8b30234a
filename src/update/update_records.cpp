#include "update/update_records.h"

#include <array>
#include <cwchar>
#include <stdexcept>

#include "settings/json.h"

namespace update {
namespace {

constexpr wchar_t kVersionKey[] = L"version";
constexpr wchar_t kTimeKey[] = L"triedAt";
// JSON numbers are doubles, which are exact up to here; no clock shows more.
constexpr double kLatestSeconds = 9007199254740992.0;

}  // namespace

std::wstring UpdateTryText(const UpdateTry& record) {
  return std::wstring(L"{\"") + kVersionKey + L"\":" + settings::QuoteJsonString(record.version) +
         L",\"" + kTimeKey + L"\":" + std::to_wstring(record.atSeconds) + L"}";
}

std::optional<UpdateTry> ParseUpdateTry(std::wstring_view text) {
  try {
    const settings::JsonValue value = settings::ReadJsonDocument(text);
    const settings::JsonValue* time = settings::FindJsonMember(value, kTimeKey);
    const double* seconds = time == nullptr ? nullptr : time->AsNumber();
    UpdateTry record;
    record.version = settings::JsonStringOrEmpty(value, kVersionKey);
    if (record.version.empty() || seconds == nullptr) return std::nullopt;
    if (!(*seconds >= 0 && *seconds < kLatestSeconds)) return std::nullopt;
    record.atSeconds = static_cast<std::int64_t>(*seconds);
    return record;
  } catch (const std::runtime_error&) {
    return std::nullopt;  // not JSON: a damaged or foreign file
  }
}

bool WasTriedWithinADay(const std::optional<UpdateTry>& last, std::wstring_view version,
                        std::int64_t nowSeconds) {
  // A time ahead of the clock was recorded while the clock was wrong and must not block the update.
  return last && last->version == version && last->atSeconds <= nowSeconds &&
         nowSeconds - last->atSeconds < kSecondsBetweenTries;
}

std::wstring UpdateLogLine(const platform::LocalTime& time, std::wstring_view message) {
  std::array<wchar_t, 96> prefix{};
  std::swprintf(prefix.data(), prefix.size(), L"[%04d-%02d-%02d %02d:%02d:%02d] ", time.year,
                time.month, time.day, time.hour, time.minute, time.second);
  // Appended outside the buffer, because a message may have any length.
  return std::wstring(prefix.data()).append(message).append(L"\r\n");
}

}  // namespace update
