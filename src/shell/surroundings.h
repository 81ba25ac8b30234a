#pragma once

#include <string>

#include "shell/app_state.h"

namespace shell {

// The program's own parts, as the window acts through them; `version` is this program's.
Surroundings RealSurroundings(const std::wstring& version);

}  // namespace shell
