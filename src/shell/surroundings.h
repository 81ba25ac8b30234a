#pragma once

#include "shell/app_state.h"

namespace shell {

// The program's own parts, as the window acts through them.
Surroundings RealSurroundings();

}  // namespace shell
