#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "settings/json.h"

namespace settings {

// The target network that means every shared network.
inline constexpr std::wstring_view kAllNetworks = L"ALL";

// A named bundle of what it takes to reach one site.
struct SiteProfile {
  std::wstring name;
  std::wstring serverUrl;
  std::wstring deviceNumber;
  std::wstring deviceSecret;
  std::wstring targetNetwork;
  std::vector<std::wstring> sharedNetworks;

  friend bool operator==(const SiteProfile&, const SiteProfile&) = default;
};

// The profiles of the settings document's "siteProfiles" member, in its order; a profile without a
// name and a member of another kind are left out.
std::vector<SiteProfile> ReadSiteProfiles(const JsonValue& document);

// The compact one-line array that the settings file holds.
std::wstring WriteSiteProfiles(const std::vector<SiteProfile>& profiles);

}  // namespace settings
