#include "service/api_envelope.h"

#include <algorithm>
#include <array>

#include "text/strings.h"

namespace service {
namespace {

constexpr std::array<std::wstring_view, 5> kRefusalCodes = {
    L"DEVICE_NOT_BOUND", L"TRAFFIC_QUOTA_EXCEEDED", L"CONCURRENT_LIMIT_EXCEEDED",
    L"DEVICE_OFFLINE",   L"DEVICE_RELAY_OFFLINE",
};

bool IsJsonTrue(const settings::JsonValue* value) {
  const bool* boolean = value == nullptr ? nullptr : value->AsBoolean();
  return boolean != nullptr && *boolean;
}

}  // namespace

ApiEnvelope ParseApiEnvelope(std::wstring_view body) {
  constexpr wchar_t kByteOrderMark = 0xFEFF;
  // Some servers write one; to the reader it would be text that is no JSON.
  if (body.starts_with(kByteOrderMark)) body.remove_prefix(1);
  const settings::JsonValue reply = settings::ReadJsonDocument(body);

  ApiEnvelope envelope;
  envelope.success = IsJsonTrue(settings::FindJsonMember(reply, L"success"));
  envelope.code = settings::JsonStringOrEmpty(reply, L"code");
  envelope.message = settings::JsonStringOrEmpty(reply, L"message");
  if (const settings::JsonValue* data = settings::FindJsonMember(reply, L"data")) {
    envelope.data = *data;
  }
  return envelope;
}

bool IsServiceRefusalCode(std::wstring_view code) {
  return std::any_of(kRefusalCodes.begin(), kRefusalCodes.end(), [code](std::wstring_view refusal) {
    return text::EqualsIgnoreCase(code, refusal);
  });
}

}  // namespace service
