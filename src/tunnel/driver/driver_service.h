#pragma once

#include <chrono>
#include <functional>
#include <string>

namespace tunnel {

// As platform::RunHidden: starts a command and waits for its end up to `wait`.
using HiddenRunner =
    std::function<bool(const std::wstring& commandLine, std::chrono::milliseconds wait)>;

// Stops the packet driver's kernel service and removes it, under the names of the driver's 2.x and
// of older ones. What cannot be done is passed over. Any thread.
void RemoveDriverService(const HiddenRunner& runHidden) noexcept;

}  // namespace tunnel
