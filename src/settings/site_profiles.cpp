#include "settings/site_profiles.h"

#include "settings/server_address.h"

namespace settings {
namespace {

SiteProfile ReadProfile(const JsonValue& object) {
  SiteProfile profile;
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

}  // namespace

std::vector<SiteProfile> ReadSiteProfiles(const JsonValue& document) {
  std::vector<SiteProfile> profiles;
  const JsonValue* list = FindJsonMember(document, L"siteProfiles");
  const JsonArray* members = list == nullptr ? nullptr : list->AsArray();
  if (members == nullptr) return profiles;
  for (const JsonValue& member : *members) {
    if (member.AsObject() == nullptr) continue;
    SiteProfile profile = ReadProfile(member);
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

}  // namespace settings
