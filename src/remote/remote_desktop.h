#pragma once

#include <string>

#include "settings/settings.h"

namespace remote {

// Opening a remote desktop on the site's computer. Not built yet: starts nothing, changes no
// setting and returns the line for the log that says so. Any thread.
std::wstring StartRemoteDesktop(const settings::Settings& settings);

}  // namespace remote
