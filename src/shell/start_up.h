#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "platform/windows_sdk.h"
#include "shell/app_state.h"
#include "update/trusted_update.h"

// The program's start, step by step. All on the thread that becomes the window's.
namespace shell {

// What the start acts through: the program's own parts, or fakes in tests.
struct StartUpDeps {
  std::function<std::wstring()> startLog;  // returns the log's path
  std::function<void(const std::wstring& text)> writeLogLine;
  std::function<std::wstring()> layOutRuntimeFiles;  // returns a line for the log, or nothing
  std::function<std::unique_ptr<AppState>()> makeState;
};

// The process log, the embedded driver files, the system's window surroundings and the settings
// file; `self` is this program.
StartUpDeps RealStartUp(const update::ProgramIdentity& self);

// Makes the windows of this process as sharp as each monitor allows, by the older call where the
// newer one is missing or refused. Must be called before any window is made.
void BecomeDpiAware();

// The program's own name and its arguments, as the system splits them; none when it cannot.
std::vector<std::wstring> CommandLineArguments();

// Runs the client until its window has gone. Returns the process's exit code: 1 when there is no
// window, otherwise what the message loop was ended with. Throws what the steps throw.
int RunClient(HINSTANCE instance, int showCommand, const StartUpDeps& deps);

}  // namespace shell
