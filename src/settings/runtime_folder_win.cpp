#include "platform/path.h"
#include "settings/runtime_folder.h"

namespace settings {

std::wstring RuntimeFolder() {
  return RuntimeFolderBelow(platform::LocalAppDataFolder(), platform::TemporaryFolder());
}

}  // namespace settings
