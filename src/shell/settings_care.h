#pragma once

#include "shell/app_state.h"

// Reading and writing the settings file with care for one that is damaged. Window's thread.
namespace shell {

// Reads the file into the state at start-up. A damaged file: the initial settings with a fresh
// engineer id stand, and the log says so.
void LoadSettings(AppState& state);

// Reads the file again after a job may have written it, and saves it again if the window has
// changed its own part since the job began. A damaged file: the settings stay as they are, and the
// log says so.
void ReloadSettings(AppState& state);

// Writes the file, having set a damaged one aside first.
void SaveSettings(AppState& state);

// The same after a change of what only the window changes: the profile list and discovery mode. A
// job that runs meanwhile saves a copy from before; ReloadSettings() then puts the change back.
void SaveWindowsChange(AppState& state);

}  // namespace shell
