#pragma once

#include <span>
#include <string>

namespace remote {

// The parameters that a program is started with: each argument in double quotes as it is, quotes
// inside it too, blanks between them; empty for no arguments. Pure.
std::wstring JoinArguments(std::span<const std::wstring> arguments);

// Starts the program through the shell, in a window shown as usual. Nobody learns whether that
// works: the engineer sees whether it comes up. Windows only; any thread.
void LaunchProgram(const std::wstring& exePath, std::span<const std::wstring> arguments);

}  // namespace remote
