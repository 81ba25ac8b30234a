#pragma once

#include <string>

#include "settings/settings.h"

namespace service {

// Asking the service which device a key belongs to and which networks it shares. Not built yet:
// sends nothing, changes no setting and returns the line for the log that says so. Any thread.
std::wstring ResolveDevice(const settings::Settings& settings);

}  // namespace service
