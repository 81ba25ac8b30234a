#include "service/connection_messages.h"

#include <stdexcept>

#include "settings/server_address.h"

namespace service {
namespace {

using settings::QuoteJsonString;

constexpr const char* kIncompleteGrant =
    "Connection authorization response is missing connectionId, assignedAddress, or routes.";

}  // namespace

std::wstring AuthorizationUrl(std::wstring_view serverUrl) {
  return settings::NormaliseServerUrl(serverUrl) + L"/api/connections/request";
}

std::wstring DisconnectUrl(std::wstring_view serverUrl, std::wstring_view connectionId) {
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
  if (grant.connectionId.empty() || grant.assignedAddress.empty() || grant.routes.empty()) {
    throw std::runtime_error(kIncompleteGrant);
  }
  return grant;
}

}  // namespace service
