#include "platform/process_win.h"
#include "platform/windows_sdk.h"
#include "shell/command_line.h"
#include "shell/diagnosis.h"
#include "shell/log_file.h"
#include "shell/main_window.h"
#include "shell/single_instance.h"
#include "shell/start_up.h"
#include "shell/window_deps.h"
#include "update/apply_update.h"

namespace {

// The build defines both; the version is in the version resource too.
const update::ProgramIdentity kProgram{VELMARINE_VERSION, VELMARINE_SIGNER_SHA256};

struct ReplacementDeps : update::RealUpdateDeps {
  ReplacementDeps() : RealUpdateDeps(kProgram) {}
  void PrepareLogFiles() override { shell::StartLog(); }
};

}  // namespace

// The entry point under -municode. An exception here means short memory before there is a window;
// it ends the program.
int WINAPI wWinMain(HINSTANCE instance, HINSTANCE, LPWSTR, int showCommand) {
  platform::LimitLibrarySearch();
  platform::RefuseForeignLibraries();
  // These variables control the browser's library; one of them names a program to run as the
  // browser.
  platform::ForgetVariables(L"WEBVIEW2_");
  platform::RefuseSystemErrorBoxes();  // the search for RustDesk asks drive D: for files
  shell::BecomeDpiAware();
  if (const auto request = shell::ParseApplyUpdate(shell::CommandLineArguments())) {
    platform::ForbidDynamicCode();
    ReplacementDeps deps;
    return update::ApplyUpdate(request->parentPid, request->source, request->destination, deps);
  }
  // Before the check for another client: the report may be written while a client runs.
  if (const auto request = shell::ParseCheck(shell::CommandLineArguments())) {
    return shell::RunCheck(*request, kProgram);
  }
  // After the update: the process that replaces the program is not a second client.
  shell::InstanceSystem system(shell::kWindowClass, shell::kWindowTitle);
  if (!shell::MayBecomeClient(system)) return 0;
  return shell::RunClient(instance, showCommand, shell::RealWindowDeps(kProgram));
}
