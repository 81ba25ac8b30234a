#include "platform/known_folders.h"
#include "platform/windows_sdk.h"
#include "shell/runtime_files_win.h"
#include "shell/runtime_folder.h"

namespace shell {

std::wstring RuntimeFolder() {
  return RuntimeFolderBelow(platform::LocalAppDataFolder(), platform::TemporaryFolder());
}

void LayOutRuntimeFiles() {
  LayOutRuntimeFilesFrom(::GetModuleHandleW(nullptr), RuntimeFolder(), platform::ProgramPath());
}

}  // namespace shell
