// Input: the known number, name and profile, one per line, and the service's reply to an access
// key. A refusal or unusable reply changes nothing; any other changes only the members that it
// contains.

#include <stdexcept>

#include "fuzz_input.h"
#include "service/api_messages.h"
#include "service/service_jobs.h"
#include "text/strings.h"

namespace service {
namespace {

using fuzz::Require;
using settings::Settings;

// The member's text; `fallback` if it is missing or not a string.
std::wstring StringMember(const settings::JsonValue& data, const std::wstring& key,
                          const std::wstring& fallback) {
  if (data.AsObject() == nullptr) return fallback;
  for (const auto& [name, value] : *data.AsObject()) {
    if (name == key && value.AsString() != nullptr) return *value.AsString();
  }
  return fallback;
}

std::vector<std::wstring> NetworksOf(const settings::JsonValue& data) {
  std::vector<std::wstring> networks;
  if (data.AsObject() == nullptr) return networks;
  for (const auto& [name, value] : *data.AsObject()) {
    if (name != L"sharedNetworks" || value.AsArray() == nullptr) continue;
    for (const settings::JsonValue& network : *value.AsArray()) {
      if (network.AsString() != nullptr) networks.push_back(*network.AsString());
    }
  }
  return networks;
}

Settings Expected(Settings settings, const settings::JsonValue& data) {
  settings.deviceNumber = StringMember(data, L"deviceNumber", settings.deviceNumber);
  settings.deviceName = StringMember(data, L"deviceName", settings.deviceName);
  if (settings.profileName.empty()) settings.profileName = settings.deviceName;
  if (settings.profileName.empty()) settings.profileName = settings.deviceNumber;
  const std::vector<std::wstring> networks = NetworksOf(data);
  if (networks.empty()) return settings;
  settings.targetNetwork = networks.front();
  settings.routesText.clear();
  for (const std::wstring& network : networks) {
    if (&network != networks.data()) settings.routesText += L"\r\n";
    settings.routesText += network;
  }
  return settings;
}

bool AreEqual(const Settings& left, const Settings& right) {
  return settings::WriteSettingsText(left) == settings::WriteSettingsText(right);
}

void Run(fuzz::Input input) {
  Settings settings;
  settings.deviceSecret = L"key";
  settings.deviceNumber = input.WideLine();
  settings.deviceName = input.WideLine();
  settings.profileName = input.WideLine();
  const std::wstring reply = text::FromUtf8(input.Rest());
  const Settings before = settings;
  const auto answer = [&](const std::wstring&, const std::wstring& url, const std::wstring& body) {
    Require(url == settings.serverUrl + L"/api/devices/resolve");
    Require(body == L"{\"deviceSecret\":\"key\"}");
    return HttpResponse{200, reply};
  };
  std::wstring line;
  try {
    if (ResolveDevice(settings, answer, line)) {
      Require(AreEqual(settings, Expected(before, ParseApiEnvelope(reply).data)));
    } else {
      Require(AreEqual(settings, before));
    }
    Require(!line.empty());
  } catch (const std::runtime_error&) {
    Require(AreEqual(settings, before) && line.empty());
  }
}

}  // namespace
}  // namespace service

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t sizeBytes) {
  service::Run(fuzz::Input(data, sizeBytes));
  return 0;
}
