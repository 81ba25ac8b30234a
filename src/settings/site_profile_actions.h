#pragma once

#include <string>
#include <string_view>

#include "settings/settings.h"

// Keeping and using site profiles: what the engineer does with the list in the settings. Pure; the
// caller saves the settings file when something changed.
namespace settings {

// What came of an action.
struct ProfileOutcome {
  std::wstring logText;  // empty: nothing to tell
  bool changed = false;  // the settings have to be saved and shown
};

// The current settings as a profile. The networks are those that the last resolve or authorisation
// stored, or else the one target network, if it is set and is not "ALL".
SiteProfile ProfileFromSettings(const Settings& settings);

// Puts the current settings to the front of the list under their profileName, in the place of every
// profile with the same name or the same device secret in any letter case, so that one site is
// never listed twice. Refused, with a line that says why, when name or secret is empty.
ProfileOutcome SaveSiteProfile(Settings& settings);

// Where a profile was chosen; the two say it in different words.
enum class ProfileChooser { Window, Page };

// Takes the values of the first profile of that name, in any letter case and without surrounding
// white space, into the settings. Nothing happens when there is none.
ProfileOutcome LoadSiteProfile(Settings& settings, std::wstring_view name, ProfileChooser chooser);

}  // namespace settings
