#include "service/api_messages.h"

#include <algorithm>
#include <array>
#include <optional>
#include <stdexcept>

#include "settings/server_address.h"
#include "text/page_texts.h"
#include "text/strings.h"
#include "text/utf8.h"

namespace service {
namespace {

using settings::QuoteJsonString;

constexpr std::array<std::wstring_view, 5> kRefusalCodes = {
    L"DEVICE_NOT_BOUND", L"TRAFFIC_QUOTA_EXCEEDED", L"CONCURRENT_LIMIT_EXCEEDED",
    L"DEVICE_OFFLINE",   L"DEVICE_RELAY_OFFLINE",
};

constexpr const char* kIncompleteGrant =
    "Connection authorization response is missing connectionId, assignedAddress, or routes.";
constexpr std::wstring_view kErrorPrefix = L"Error: ";

bool IsJsonTrue(const settings::JsonValue* value) {
  const bool* boolean = value == nullptr ? nullptr : value->AsBoolean();
  return boolean != nullptr && *boolean;
}

// Nothing for an exception without a message.
std::optional<std::wstring> MessageOf(const std::exception_ptr& failure) {
  try {
    std::rethrow_exception(failure);
  } catch (const std::exception& error) {
    return text::FromUtf8(error.what());
  } catch (...) {
    // Not a standard exception, so it carries no text.
    return std::nullopt;
  }
}

}  // namespace

ApiEnvelope ParseApiEnvelope(std::wstring_view body) {
  constexpr wchar_t kByteOrderMark = 0xFEFF;
  // Some servers write one. The JSON reader does not skip it.
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

std::wstring AuthorizationUrl(std::wstring_view serverUrl) {
  return settings::NormaliseServerUrl(serverUrl) + L"/api/connections/request";
}

std::wstring DisconnectUrl(std::wstring_view serverUrl, std::wstring_view connectionId) {
  // The id as the service sent it, without encoding; the contract limits its characters.
  return settings::NormaliseServerUrl(serverUrl) + L"/api/connections/" +
         std::wstring(connectionId) + L"/disconnect";
}

std::wstring AuthorizationBody(const settings::Settings& settings) {
  return L"{\"deviceNumber\":" + QuoteJsonString(settings.deviceNumber) +  //
         L",\"deviceSecret\":" + QuoteJsonString(settings.deviceSecret) + L",\"targetNetwork\":" +
         QuoteJsonString(settings.targetNetwork) + L",\"engineerId\":" +
         QuoteJsonString(settings.engineerId) +  //
         L",\"clientPublicKey\":\"\"}";
}

std::wstring DisconnectBody(std::wstring_view engineerId, std::wstring_view reason) {
  return L"{\"engineerId\":" + QuoteJsonString(engineerId) +  //
         L",\"reason\":" + QuoteJsonString(reason) + L"}";
}

ConnectionGrant ReadConnectionGrant(const settings::JsonValue& data) {
  ConnectionGrant grant;
  grant.connectionId = settings::JsonStringOrEmpty(data, L"connectionId");
  grant.assignedAddress = settings::JsonStringOrEmpty(data, L"assignedAddress");
  grant.routes = settings::JsonStringsOf(data, L"routes");
  // All three are needed to start the tunnel and to end the connection.
  if (grant.connectionId.empty() || grant.assignedAddress.empty() || grant.routes.empty()) {
    throw std::runtime_error(kIncompleteGrant);
  }
  return grant;
}

std::wstring FailureMessage(const std::exception_ptr& failure) {
  return MessageOf(failure).value_or(std::wstring(text::kUnknownError));
}

std::wstring JobFailureLine(const std::exception_ptr& failure) {
  const std::optional<std::wstring> message = MessageOf(failure);
  return message ? std::wstring(kErrorPrefix) + *message : std::wstring(text::kUnknownError);
}

}  // namespace service
