#pragma once

#include <functional>
#include <string>

#include "settings/settings.h"
#include "tunnel/tunnel.h"

// What runs beside the window: the worker's jobs and the update check. Pure; any thread.
namespace shell {

// A long action: works on its own copy of the settings, returns the text for the engineer's log.
using Job = std::function<std::wstring(settings::Settings& settings, tunnel::Tunnel& tunnel)>;

// Runs `job`. What it throws becomes its text: "Error: " and the message, or "Unknown error.".
std::wstring RunJob(const Job& job, settings::Settings& settings, tunnel::Tunnel& tunnel);

// Returns the notice for the engineer; empty when there is nothing to say.
using UpdateCheck = std::function<std::wstring(const settings::Settings& settings)>;

// Runs `check`. What it throws becomes the notice that says so.
std::wstring RunUpdateCheck(const UpdateCheck& check, const settings::Settings& settings);

}  // namespace shell
