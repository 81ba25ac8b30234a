#include "platform/process_win.h"
#include "platform/windows_sdk.h"
#include "shell/command_line.h"
#include "shell/diagnosis.h"
#include "shell/log_file.h"
#include "shell/main_window.h"
#include "shell/single_instance.h"
#include "shell/start_up.h"
#include "update/apply_update.h"

namespace {

// The build names both; the version stands in the version resource, too.
const update::ProgramIdentity kProgram{VELMARINE_VERSION, VELMARINE_SIGNER_SHA256};

struct ReplacementDeps : update::RealUpdateDeps {
  ReplacementDeps() : RealUpdateDeps(kProgram) {}
  void PrepareLogFiles() override { shell::StartLog(); }
};

}  // namespace

// -municode takes this for the program's entry. What an exception here would mean, short memory
// before there is a window, ends the program.
int WINAPI wWinMain(HINSTANCE instance, HINSTANCE, LPWSTR, int showCommand) {
  platform::LimitLibrarySearch();
  platform::RefuseForeignLibraries();
  // The browser's library takes orders from them, down to another program to run as the browser.
  platform::ForgetVariables(L"WEBVIEW2_");
  platform::RefuseSystemErrorBoxes();  // looking for RustDesk asks drive D: for files
  shell::BecomeDpiAware();
  if (const auto request = shell::ParseApplyUpdate(shell::CommandLineArguments())) {
    platform::ForbidDynamicCode();
    ReplacementDeps deps;
    return update::ApplyUpdate(request->parentPid, request->source, request->destination, deps);
  }
  // Looks at the computer while a client may run; it is none itself.
  if (const auto request = shell::ParseCheck(shell::CommandLineArguments())) {
    return shell::RunCheck(*request, kProgram);
  }
  // Behind the update: the process that replaces the program is no second client.
  if (!shell::MayBecomeClient(shell::RealInstanceDeps(shell::kWindowClass, shell::kWindowTitle))) {
    return 0;
  }
  return shell::RunClient(instance, showCommand, shell::RealStartUp(kProgram));
}
