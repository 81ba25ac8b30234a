#pragma once

#include <chrono>
#include <string>

namespace platform {

// Runs `commandLine` without a window, with no handles of ours, and waits for its end up to `wait`;
// a command that takes longer goes on by itself. False when it could not be started. What it
// returned is not looked at. Any thread.
bool RunHidden(const std::wstring& commandLine, std::chrono::milliseconds wait);

}  // namespace platform
