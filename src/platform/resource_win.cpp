#include "platform/resource_win.h"

namespace platform {

std::span<const std::byte> FindResourceBytes(HMODULE module, WORD id) {
  HRSRC found = ::FindResourceW(module, MAKEINTRESOURCEW(id), RT_RCDATA);
  if (found == nullptr) return {};
  HGLOBAL loaded = ::LoadResource(module, found);
  if (loaded == nullptr) return {};
  const auto* bytes = static_cast<const std::byte*>(::LockResource(loaded));
  if (bytes == nullptr) return {};
  return {bytes, ::SizeofResource(module, found)};
}

}  // namespace platform
