#include "platform/files.h"
#include "platform/path.h"
#include "platform/user_folders_win.h"
#include "remote/rustdesk_config.h"
#include "remote/rustdesk_places.h"
#include "remote/rustdesk_program.h"
#include "service/http_transport.h"
#include "settings/settings_file.h"

namespace remote {

RustDeskFolders RealRustDeskFolders() {
  RustDeskFolders folders;
  folders.programFiles = platform::ProgramFilesFolder();
  folders.programFilesX86 = platform::ProgramFilesX86Folder();
  folders.localAppData = platform::LocalAppDataFolder();
  folders.roamingAppData = platform::RoamingAppDataFolder();
  folders.program = platform::ProgramFolder();
  folders.runtime = settings::RuntimeFolder();
  folders.windows = platform::WindowsFolder();
  return folders;
}

RustDeskProgramPorts RealRustDeskProgramPorts(const std::stop_token& closing) {
  return {platform::FileSizeBytes, platform::CreateFolders, platform::DeleteFileAt,
          service::RealDownloader(closing)};
}

RustDeskConfigPorts RealRustDeskConfigPorts() {
  RustDeskConfigPorts ports;
  ports.listFolders = platform::ListFolders;
  ports.createFolders = [folders = RealRustDeskFolders()](const std::wstring& folder) {
    return platform::CreateUnlinkedFolders(folder, ConfigPartsOfUsers(folder, folders));
  };
  ports.writeFile = [folders = RealRustDeskFolders()](const std::wstring& path,
                                                      const std::string& bytes) {
    return platform::WriteUnlinkedFile(path, ConfigPartsOfUsers(path, folders), bytes).succeeded;
  };
  return ports;
}

}  // namespace remote
