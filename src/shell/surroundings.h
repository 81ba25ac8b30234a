#pragma once

#include "shell/app_state.h"
#include "update/trusted_update.h"

namespace shell {

// The program's own parts, as the window acts through them; `self` is this program.
Surroundings RealSurroundings(const update::ProgramIdentity& self);

}  // namespace shell
