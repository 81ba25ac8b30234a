#include "service/device_resolve.h"

#include <string_view>
#include <vector>

#include "service/api_envelope.h"
#include "settings/json.h"
#include "settings/server_address.h"
#include "text/strings.h"

namespace service {
namespace {

constexpr std::wstring_view kPath = L"/api/devices/resolve";
constexpr std::wstring_view kNotResolvedPrefix = L"Resolve failed: ";
constexpr std::wstring_view kResolvedPrefix = L"已获取现场端 ";
constexpr std::wstring_view kResolvedSuffix = L" 的共享网段。";

void TakeNetworks(const settings::JsonValue& data, settings::Settings& settings) {
  const std::vector<std::wstring> networks = settings::JsonStringsOf(data, L"sharedNetworks");
  if (networks.empty()) return;
  settings.routesText = text::Join(networks, text::kLineBreak);
  settings.targetNetwork = networks.front();
}

}  // namespace

bool ResolveDevice(settings::Settings& settings, const JsonRequester& sendJsonRequest,
                   std::wstring& text) {
  std::wstring url = settings::NormaliseServerUrl(settings.serverUrl);
  url.append(kPath);
  std::wstring body = L"{\"deviceSecret\":";
  body.append(settings::QuoteJsonString(settings.deviceSecret)).append(L"}");
  const ApiEnvelope envelope = ParseApiEnvelope(sendJsonRequest(L"POST", url, body).body);
  if (!envelope.success) {
    text = kNotResolvedPrefix;
    text.append(envelope.message);
    return false;
  }
  settings::TakeJsonString(envelope.data, L"deviceNumber", settings.deviceNumber);
  TakeNetworks(envelope.data, settings);
  settings::TakeJsonString(envelope.data, L"deviceName", settings.deviceName);
  if (settings.profileName.empty()) {
    settings.profileName =
        settings.deviceName.empty() ? settings.deviceNumber : settings.deviceName;
  }
  text = kResolvedPrefix;
  text.append(settings.deviceNumber).append(kResolvedSuffix);
  return true;
}

}  // namespace service
