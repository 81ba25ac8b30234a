#pragma once

#include "platform/windows_sdk.h"

namespace platform {

// The function that `module` exports under `name`, as a pointer of type `Function`; nullptr when
// there is none (GetLastError() then tells why). That the type is the function's is up to the
// caller. Valid while the module is loaded. Any thread.
//
// The one place that casts GetProcAddress: through void*, because compilers rightly distrust a cast
// from one function type to another.
template <typename Function>
Function GetProcAddressAs(HMODULE module, const char* name) noexcept {
  return reinterpret_cast<Function>(reinterpret_cast<void*>(::GetProcAddress(module, name)));
}

}  // namespace platform
