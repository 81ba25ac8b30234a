#pragma once

#include "settings/settings.h"

namespace shell {

// The settings as the program starts with them, before its file has been read.
settings::Settings InitialSettings();

}  // namespace shell
