#include <variant>

#include "settings/engineer_id.h"
#include "settings/json.h"
#include "settings/server_address.h"
#include "settings/settings.h"

namespace settings {
namespace {

// One member of the file and where it lives in the record.
struct Member {
  const wchar_t* key;
  std::variant<std::wstring Settings::*, bool Settings::*> field;
};

// In the file's order; siteProfiles follows them.
constexpr Member kMembers[] = {
    {L"serverUrl", &Settings::serverUrl},
    {L"deviceNumber", &Settings::deviceNumber},
    {L"deviceSecret", &Settings::deviceSecret},
    {L"deviceName", &Settings::deviceName},
    {L"profileName", &Settings::profileName},
    {L"networkInterfaceName", &Settings::networkInterfaceName},
    {L"sharedNetworksText", &Settings::sharedNetworksText},
    {L"targetNetwork", &Settings::targetNetwork},
    {L"engineerId", &Settings::engineerId},
    {L"rustDeskPath", &Settings::rustDeskPath},
    {L"rustDeskAccessPassword", &Settings::rustDeskAccessPassword},
    {L"rustDeskId", &Settings::rustDeskId},
    {L"rustDeskServiceRunning", &Settings::rustDeskServiceRunning},
    {L"connectionId", &Settings::connectionId},
    {L"assignedAddress", &Settings::assignedAddress},
    {L"routesText", &Settings::routesText},
    {L"accessRoutesText", &Settings::accessRoutesText},
    {L"routeMappingsText", &Settings::routeMappingsText},
    {L"testIp", &Settings::testIp},
    {L"latencyText", &Settings::latencyText},
    {L"heartbeatAccepted", &Settings::heartbeatAccepted},
    {L"heartbeatMessage", &Settings::heartbeatMessage},
    {L"autoStartEnabled", &Settings::autoStartEnabled},
    {L"discoveryModeEnabled", &Settings::discoveryModeEnabled},
};

std::wstring WriteValue(const std::wstring& value) {
  return QuoteJsonString(value);
}
std::wstring WriteValue(bool value) {
  return value ? L"true" : L"false";
}

void TakeValue(const JsonValue& value, std::wstring& field) {
  if (value.AsString() != nullptr) field = *value.AsString();
}
void TakeValue(const JsonValue& value, bool& field) {
  if (value.AsBoolean() != nullptr) field = *value.AsBoolean();
}

void TakeMembers(const JsonValue& document, Settings& settings) {
  for (const Member& member : kMembers) {
    const JsonValue* value = FindJsonMember(document, member.key);
    if (value == nullptr) continue;
    std::visit([&](auto field) { TakeValue(*value, settings.*field); }, member.field);
  }
  settings.serverUrl = NormaliseServerUrl(settings.serverUrl);
  settings.siteProfiles = ReadSiteProfiles(document);
}

}  // namespace

Settings::Settings() : serverUrl(DefaultServerUrl()) {}

std::wstring WriteSettingsText(const Settings& given) {
  Settings settings = given;
  settings.serverUrl = NormaliseServerUrl(given.serverUrl);
  std::wstring text = L"{\n";
  for (const Member& member : kMembers) {
    const std::wstring value =
        std::visit([&](auto field) { return WriteValue(settings.*field); }, member.field);
    text += L"  \"" + std::wstring(member.key) + L"\": " + value + L",\n";
  }
  return text + L"  \"siteProfiles\": " + WriteSiteProfiles(settings.siteProfiles) + L"\n}\n";
}

void ReadSettingsText(std::wstring_view text, Settings& settings) {
  const JsonValue document = ReadJsonDocument(text);
  // A document of another kind tells nothing, not even that there are no profiles.
  if (document.AsObject() != nullptr) TakeMembers(document, settings);
  if (settings.profileName.empty()) settings.profileName = settings.deviceName;
  if (settings.engineerId.empty()) settings.engineerId = MakeEngineerId();
}

}  // namespace settings
