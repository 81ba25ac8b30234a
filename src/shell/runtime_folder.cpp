#include "shell/runtime_folder.h"

#include "platform/path.h"

namespace shell {

std::wstring RuntimeFolderBelow(std::wstring_view localAppData, std::wstring_view temporary) {
  return platform::JoinPath(localAppData.empty() ? temporary : localAppData, L"Velmarine\\Runtime");
}

std::optional<std::wstring> DevelopmentTreeRoot(std::wstring_view programPath) {
  const std::size_t end = programPath.find(L"\\src\\VelmarineNative\\");
  if (end == std::wstring_view::npos) return std::nullopt;
  return std::wstring(programPath.substr(0, end));
}

}  // namespace shell
