#pragma once

#include <string>

#include "settings/settings.h"

namespace update {

// Asking the service for a newer version. Not built yet: sends nothing, installs nothing and
// returns the notice for the log that says so. Any thread.
std::wstring CheckForUpdate(const settings::Settings& settings);

}  // namespace update
