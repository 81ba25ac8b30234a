#pragma once

#include <cstddef>
#include <span>

#include "platform/windows_sdk.h"

namespace platform {

// The bytes of the RCDATA resource `id` in `module` (null: the program itself). They live as long
// as the module is loaded and are not freed. Empty when there is no such resource, or nothing in
// it. Any thread.
std::span<const std::byte> FindResourceBytes(HMODULE module, WORD id);

}  // namespace platform
