#pragma once

#include <string>

#include "settings/settings.h"
#include "shell/command_line.h"
#include "update/trusted_update.h"

// The report on this computer that engineers send with a question.
namespace shell {

// `--check`: writes the report and opens it, without a window, log or client. Returns the exit
// code: 0 when it was written.
int RunCheck(const CheckArguments& arguments, const update::ProgramIdentity& self);

// The same for the running client with these settings. Returns the line with the report's path, or
// with the reason of a failure. Any thread.
std::wstring WriteReport(const update::ProgramIdentity& self, const settings::Settings& settings);

}  // namespace shell
