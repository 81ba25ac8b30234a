#include "shell/development_tree.h"

namespace shell {

std::optional<std::wstring> DevelopmentTreeRoot(std::wstring_view programPath) {
  const std::size_t end = programPath.find(L"\\src\\VelmarineNative\\");
  if (end == std::wstring_view::npos) return std::nullopt;
  return std::wstring(programPath.substr(0, end));
}

}  // namespace shell
