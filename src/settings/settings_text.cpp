#include "settings/engineer_id.h"
#include "settings/json.h"
#include "settings/server_address.h"
#include "settings/settings.h"
#include "settings/settings_members.h"

namespace settings {
namespace {

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
  for (const SettingsMember& member : kSettingsMembers) {
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
  for (const SettingsMember& member : kSettingsMembers) {
    const std::wstring value =
        std::visit([&](auto field) { return WriteValue(settings.*field); }, member.field);
    text += L"  \"" + std::wstring(member.key) + L"\": " + value + L",\n";
  }
  return text + L"  \"siteProfiles\": " + WriteSiteProfiles(settings.siteProfiles) + L"\n}\n";
}

void ReadSettingsText(std::wstring_view text, Settings& settings) {
  ReadSettingsDocument(ReadJsonDocument(text), settings);
}

void ReadSettingsDocument(const JsonValue& document, Settings& settings) {
  // A document of another kind tells nothing, not even that there are no profiles.
  if (document.AsObject() != nullptr) TakeMembers(document, settings);
  if (settings.profileName.empty()) settings.profileName = settings.deviceName;
  if (settings.engineerId.empty()) settings.engineerId = MakeEngineerId();
}

}  // namespace settings
