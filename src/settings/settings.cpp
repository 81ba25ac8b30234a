#include "settings/settings.h"

#include <random>
#include <variant>

#include "settings/server_address.h"
#include "text/strings.h"

namespace settings {
namespace {

// Whose value counts when window and job have both changed a member.
enum class Winner {
  Window,
  Job,
  Site,  // the job's, unless the form has another access key by now
};

struct SettingsMember {
  const wchar_t* key;
  std::variant<std::wstring Settings::*, bool Settings::*> field;
  Winner winner;
};

// In the file's order; siteProfiles comes last.
constexpr SettingsMember kSettingsMembers[] = {
    {L"serverUrl", &Settings::serverUrl, Winner::Window},
    {L"deviceNumber", &Settings::deviceNumber, Winner::Site},
    {L"deviceSecret", &Settings::deviceSecret, Winner::Window},
    {L"deviceName", &Settings::deviceName, Winner::Site},
    {L"profileName", &Settings::profileName, Winner::Window},
    {L"networkInterfaceName", &Settings::networkInterfaceName, Winner::Window},
    {L"sharedNetworksText", &Settings::sharedNetworksText, Winner::Job},
    {L"targetNetwork", &Settings::targetNetwork, Winner::Window},
    {L"engineerId", &Settings::engineerId, Winner::Job},
    {L"rustDeskPath", &Settings::rustDeskPath, Winner::Job},
    {L"rustDeskAccessPassword", &Settings::rustDeskAccessPassword, Winner::Job},
    {L"rustDeskId", &Settings::rustDeskId, Winner::Job},
    {L"rustDeskServiceRunning", &Settings::rustDeskServiceRunning, Winner::Job},
    {L"connectionId", &Settings::connectionId, Winner::Job},
    {L"assignedAddress", &Settings::assignedAddress, Winner::Job},
    {L"routesText", &Settings::routesText, Winner::Site},
    {L"accessRoutesText", &Settings::accessRoutesText, Winner::Job},
    {L"routeMappingsText", &Settings::routeMappingsText, Winner::Job},
    {L"testIp", &Settings::testIp, Winner::Window},
    {L"latencyText", &Settings::latencyText, Winner::Job},
    {L"heartbeatAccepted", &Settings::heartbeatAccepted, Winner::Job},
    {L"heartbeatMessage", &Settings::heartbeatMessage, Winner::Job},
    {L"autoStartEnabled", &Settings::autoStartEnabled, Winner::Window},
    {L"discoveryModeEnabled", &Settings::discoveryModeEnabled, Winner::Window},
};

template <typename Value>
const Value& Merge(const Value& base, const Value& window, const Value& job, bool windowWins) {
  if (job == base) return window;
  if (window == base) return job;
  return windowWins ? window : job;
}

std::wstring WriteValue(const std::wstring& value) {
  return QuoteJsonString(value);
}
std::wstring WriteValue(bool value) {
  return value ? L"true" : L"false";
}

void TakeValue(const JsonValue& value, std::wstring& field) {
  // A value of another kind keeps the default: people edit the file by hand.
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
  // The file may hold an address as an engineer typed it.
  settings.serverUrl = NormaliseServerUrl(settings.serverUrl);
  settings.siteProfiles = ReadSiteProfiles(document);
}

}  // namespace

Settings::Settings() : serverUrl(DefaultServerUrl()) {}

GrantedConnection ConnectionInForce(const Settings& settings) {
  // A file of an earlier version has no grant, and the grant of another connection does not count.
  if (!settings.connectionId.empty() && settings.granted.connectionId == settings.connectionId) {
    return settings.granted;
  }
  return {settings.connectionId, settings.serverUrl, settings.engineerId,
          text::SplitLines(settings.routesText)};
}

std::wstring MakeEngineerId() {
  std::random_device seed;
  std::mt19937 generator(seed());
  return MakeEngineerId([&generator] { return static_cast<std::uint32_t>(generator()); });
}

std::wstring MakeEngineerId(const std::function<std::uint32_t()>& random) {
  constexpr std::uint32_t kFirst = 10'000'000;
  constexpr std::uint32_t kCount = 90'000'000;
  // 2^32 mod kCount. Without rejecting products with a smaller lower half, some numbers would be
  // more likely than others.
  constexpr std::uint32_t kRejectBelow = (0 - kCount) % kCount;
  std::uint64_t product = 0;
  do {
    product = std::uint64_t{random()} * kCount;
  } while (static_cast<std::uint32_t>(product) < kRejectBelow);
  return L"ENG-" + std::to_wstring(kFirst + static_cast<std::uint32_t>(product >> 32));
}

Settings MergeSettings(const Settings& base, const Settings& window, const Settings& job) {
  // A job may have resolved a device while the engineer typed the key of another one.
  const bool anotherKey = window.deviceSecret != base.deviceSecret;
  Settings merged = window;
  for (const SettingsMember& member : kSettingsMembers) {
    // `merged` then keeps the window's value.
    if (member.winner == Winner::Site && anotherKey) continue;
    std::visit(
        [&](auto field) {
          merged.*field =
              Merge(base.*field, window.*field, job.*field, member.winner == Winner::Window);
        },
        member.field);
  }
  // If both changed: the list as the engineer left it, the grant as the service gave it.
  merged.siteProfiles = Merge(base.siteProfiles, window.siteProfiles, job.siteProfiles, true);
  merged.granted = Merge(base.granted, window.granted, job.granted, false);
  return merged;
}

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
  // A document of another kind has no members, so its missing list must not empty ours.
  if (document.AsObject() != nullptr) TakeMembers(document, settings);
  if (settings.profileName.empty()) settings.profileName = settings.deviceName;
  if (settings.engineerId.empty()) settings.engineerId = MakeEngineerId();
}

std::wstring WriteGrantedConnection(const GrantedConnection& granted) {
  return L"{\"connectionId\":" + QuoteJsonString(granted.connectionId) +  //
         L",\"serverUrl\":" + QuoteJsonString(granted.serverUrl) +        //
         L",\"engineerId\":" + QuoteJsonString(granted.engineerId) +      //
         L",\"routes\":" + WriteJsonStrings(granted.routes) + L"}\n";
}

GrantedConnection ReadGrantedConnection(const JsonValue& document) {
  return {JsonStringOrEmpty(document, L"connectionId"), JsonStringOrEmpty(document, L"serverUrl"),
          JsonStringOrEmpty(document, L"engineerId"), JsonStringsOf(document, L"routes")};
}

}  // namespace settings
