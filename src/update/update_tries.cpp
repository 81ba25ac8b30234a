#include "update/update_tries.h"

#include <stdexcept>

#include "settings/json.h"

namespace update {
namespace {

constexpr wchar_t kVersionKey[] = L"version";
constexpr wchar_t kTimeKey[] = L"triedAt";
// A double holds every whole number up to here; no clock shows more.
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
    return std::nullopt;  // no JSON: somebody else's file, or a damaged one
  }
}

bool WasTriedWithinADay(const std::optional<UpdateTry>& last, std::wstring_view version,
                        std::int64_t nowSeconds) {
  return last && last->version == version && last->atSeconds <= nowSeconds &&
         nowSeconds - last->atSeconds < kSecondsBetweenTries;
}

}  // namespace update
