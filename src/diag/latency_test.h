#pragma once

#include <string>

#include "settings/settings.h"

namespace diag {

// Measuring the round trip to the test address. Not built yet: sends nothing, changes no setting
// and returns the line for the log that says so. Any thread.
std::wstring RunLatencyTest(const settings::Settings& settings);

}  // namespace diag
