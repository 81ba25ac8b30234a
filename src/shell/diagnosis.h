#pragma once

#include <string>

#include "settings/settings.h"
#include "shell/command_line.h"
#include "update/trusted_update.h"

// The report on this computer, from the command line and from the window's system menu.
namespace shell {

// `--check`: writes the report and opens it, without a window, log or client. Returns the process's
// exit code: 0 when it was written.
int RunCheck(const CheckArguments& arguments, const update::ProgramIdentity& self);

// The same for the running client, which has these settings. Returns the line that says where it
// was written or why not. Any thread.
std::wstring WriteReport(const update::ProgramIdentity& self, const settings::Settings& settings);

}  // namespace shell
