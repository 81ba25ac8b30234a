#include "settings/site_profiles.h"

#include <algorithm>
#include <utility>

#include "settings/server_address.h"
#include "text/strings.h"

namespace settings {
namespace {

SiteProfile ReadProfile(const JsonValue& object) {
  SiteProfile profile;
  // Defaults first: members that the file lacks or has of another kind leave them.
  profile.serverUrl = DefaultServerUrl();
  profile.targetNetwork = kAllNetworks;
  TakeJsonString(object, L"name", profile.name);
  TakeJsonString(object, L"serverUrl", profile.serverUrl);
  TakeJsonString(object, L"deviceNumber", profile.deviceNumber);
  TakeJsonString(object, L"deviceSecret", profile.deviceSecret);
  TakeJsonString(object, L"targetNetwork", profile.targetNetwork);
  profile.sharedNetworks = JsonStringsOf(object, L"sharedNetworks");
  return profile;
}

std::wstring WriteProfile(const SiteProfile& profile) {
  const std::wstring_view target =
      profile.targetNetwork.empty() ? kAllNetworks : std::wstring_view(profile.targetNetwork);
  return L"{\"name\":" + QuoteJsonString(profile.name) +                  //
         L",\"serverUrl\":" + QuoteJsonString(profile.serverUrl) +        //
         L",\"deviceNumber\":" + QuoteJsonString(profile.deviceNumber) +  //
         L",\"deviceSecret\":" + QuoteJsonString(profile.deviceSecret) +  //
         L",\"targetNetwork\":" + QuoteJsonString(target) +               //
         L",\"sharedNetworks\":" + WriteJsonStrings(profile.sharedNetworks) + L"}";
}

constexpr wchar_t kNoName[] = L"档案未保存：请先填写档案名称。";
constexpr wchar_t kNoSecret[] = L"档案未保存：接入密钥为空。";
constexpr wchar_t kSaved[] = L"档案已保存。";
constexpr wchar_t kLoadedInWindow[] = L"已加载档案：";
constexpr wchar_t kLoadedInPage[] = L"已载入档案：";

std::wstring OrAll(const std::wstring& targetNetwork) {
  return targetNetwork.empty() ? std::wstring(kAllNetworks) : targetNetwork;
}

bool IsSameSite(const SiteProfile& one, const SiteProfile& other) {
  // Either alone identifies a site, so that none is listed twice.
  return text::EqualsIgnoreCase(one.name, other.name) ||
         text::EqualsIgnoreCase(one.deviceSecret, other.deviceSecret);
}

void Apply(const SiteProfile& profile, Settings& settings) {
  settings.profileName = profile.name;
  settings.deviceName = profile.name;
  // A profile edited by hand may lack the address.
  settings.serverUrl = profile.serverUrl.empty() ? DefaultServerUrl() : profile.serverUrl;
  settings.deviceNumber = profile.deviceNumber;
  settings.deviceSecret = profile.deviceSecret;
  settings.targetNetwork = OrAll(profile.targetNetwork);
  // For the form only: a connection in force keeps the networks of its grant.
  settings.routesText = text::Join(profile.sharedNetworks, text::kLineBreak);
}

}  // namespace

std::vector<SiteProfile> ReadSiteProfiles(const JsonValue& document) {
  std::vector<SiteProfile> profiles;
  const JsonValue* list = FindJsonMember(document, L"siteProfiles");
  const JsonArray* members = list == nullptr ? nullptr : list->AsArray();
  if (members == nullptr) return profiles;
  for (const JsonValue& member : *members) {
    if (member.AsObject() == nullptr) continue;
    SiteProfile profile = ReadProfile(member);
    // Profiles are chosen by name; one without could never be loaded or replaced.
    if (!profile.name.empty()) profiles.push_back(std::move(profile));
  }
  return profiles;
}

std::wstring WriteSiteProfiles(const std::vector<SiteProfile>& profiles) {
  std::wstring list;
  for (const SiteProfile& profile : profiles) {
    if (!list.empty()) list += L',';
    list += WriteProfile(profile);
  }
  return L"[" + list + L"]";
}

SiteProfile ProfileFromSettings(const Settings& settings) {
  SiteProfile profile;
  profile.name = settings.profileName;
  profile.serverUrl = settings.serverUrl;
  profile.deviceNumber = settings.deviceNumber;
  profile.deviceSecret = settings.deviceSecret;
  profile.targetNetwork = OrAll(settings.targetNetwork);
  profile.sharedNetworks = text::SplitLines(settings.routesText);
  if (profile.sharedNetworks.empty() && profile.targetNetwork != kAllNetworks) {
    profile.sharedNetworks = {profile.targetNetwork};
  }
  return profile;
}

ProfileOutcome SaveSiteProfile(Settings& settings) {
  if (settings.profileName.empty()) return {kNoName};
  if (settings.deviceSecret.empty()) return {kNoSecret};
  SiteProfile profile = ProfileFromSettings(settings);
  // The same secret under a new name is a renamed site, not a second one.
  std::vector<SiteProfile>& profiles = settings.siteProfiles;
  std::erase_if(profiles, [&](const SiteProfile& other) { return IsSameSite(other, profile); });
  // At the front: the page lists the newest first.
  profiles.insert(profiles.begin(), std::move(profile));
  return {kSaved, true};
}

ProfileOutcome LoadSiteProfile(Settings& settings, std::wstring_view name, ProfileChooser chooser) {
  const std::wstring wanted = text::Trim(name);
  if (wanted.empty()) return {};
  const auto found = std::ranges::find_if(settings.siteProfiles, [&](const SiteProfile& profile) {
    return text::EqualsIgnoreCase(profile.name, wanted);
  });
  if (found == settings.siteProfiles.end()) return {};
  Apply(*found, settings);
  const wchar_t* const loaded = chooser == ProfileChooser::Page ? kLoadedInPage : kLoadedInWindow;
  return {loaded + found->name, true};
}

}  // namespace settings
