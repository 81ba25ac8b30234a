#pragma once

#include <cstddef>
#include <span>

#include "platform/windows_sdk.h"

// What a loaded module offers: its exported functions and its resources. Any thread.
namespace platform {

// The function that `module` exports under `name`; nullptr, with the last error set, without one.
// The caller vouches for its type. Valid while the module is loaded.
//
// The only cast of GetProcAddress: through void*, because compilers rightly warn about a cast from
// one function type to another.
template <typename Function>
Function GetProcAddressAs(HMODULE module, const char* name) noexcept {
  return reinterpret_cast<Function>(reinterpret_cast<void*>(::GetProcAddress(module, name)));
}

// The bytes of the RCDATA resource `id` in `module` (null: the program itself), valid while the
// module is loaded. Empty without such a resource.
inline std::span<const std::byte> FindResourceBytes(HMODULE module, WORD id) {
  HRSRC found = ::FindResourceW(module, MAKEINTRESOURCEW(id), RT_RCDATA);
  if (found == nullptr) return {};
  HGLOBAL loaded = ::LoadResource(module, found);
  if (loaded == nullptr) return {};
  const auto* bytes = static_cast<const std::byte*>(::LockResource(loaded));
  if (bytes == nullptr) return {};
  return {bytes, ::SizeofResource(module, found)};
}

}  // namespace platform
