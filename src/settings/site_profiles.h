#pragma once

#include <string>
#include <string_view>

#include "settings/settings.h"

// The engineer's actions on the list of site profiles. Pure; the caller saves changed settings.
namespace settings {

struct ProfileOutcome {
  std::wstring logText;  // empty: no line for the log
  bool changed = false;  // the settings must be saved and shown
};

// The current settings as a profile. Its networks are those that the last resolve or authorisation
// stored, else the target network if that is a single one.
SiteProfile ProfileFromSettings(const Settings& settings);

// Puts the current settings at the front of the list under their profileName. Replaces every
// profile with the same name or device secret in any letter case, so that a site is never listed
// twice. Refuses an empty name or secret, with a line that explains why.
ProfileOutcome SaveSiteProfile(Settings& settings);

// Where a profile was chosen; the log's wording differs.
enum class ProfileChooser { Window, Page };

// Loads the first profile of that name, in any letter case and trimmed, into the settings. Does
// nothing without one.
ProfileOutcome LoadSiteProfile(Settings& settings, std::wstring_view name, ProfileChooser chooser);

}  // namespace settings
