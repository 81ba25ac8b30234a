#include "settings/runtime_folder.h"

#include "platform/path.h"

namespace settings {

std::wstring RuntimeFolderBelow(std::wstring_view localAppData, std::wstring_view temporary) {
  return platform::JoinPath(localAppData.empty() ? temporary : localAppData, L"Velmarine\\Runtime");
}

}  // namespace settings
