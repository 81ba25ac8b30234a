#include "platform/path.h"

namespace platform {

std::wstring JoinPath(std::wstring_view base, std::wstring_view relative) {
  std::wstring joined(base);
  if (!joined.empty() && joined.back() != L'\\' && joined.back() != L'/') joined += L'\\';
  joined += relative;
  return joined;
}

std::wstring ParentFolder(std::wstring_view path) {
  const auto slash = path.find_last_of(L"\\/");
  return slash == std::wstring_view::npos ? std::wstring() : std::wstring(path.substr(0, slash));
}

std::wstring PathFromBuffer(std::span<const wchar_t> buffer, std::size_t lengthUnits) {
  if (lengthUnits >= buffer.size()) return {};
  return std::wstring(buffer.data(), lengthUnits);
}

}  // namespace platform
