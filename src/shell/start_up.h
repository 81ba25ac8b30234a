#pragma once

#include <memory>
#include <string>
#include <vector>

#include "platform/windows_sdk.h"
#include "shell/window_deps.h"

// The program's start. Runs on the thread that becomes the window's.
namespace shell {

// Makes the windows of this process as sharp as each monitor allows, by the older call when the
// newer one is missing or refused. Must be called before any window is created.
void BecomeDpiAware();

// The program's own name and its arguments, as the system splits them; empty when it cannot.
std::vector<std::wstring> CommandLineArguments();

// Runs the client until its window is gone. Returns the exit code: 1 when there is no window,
// otherwise the code that ended the message loop. Lets exceptions of `deps` through.
int RunClient(HINSTANCE instance, int showCommand, const std::shared_ptr<WindowDeps>& deps);

}  // namespace shell
