#pragma once

#include <cstdint>
#include <span>

#include "driver/injection.h"
#include "platform/windows_sdk.h"

// What the files with the library's exports share.
#define LAB_EXPORT extern "C" __declspec(dllexport)

namespace driver {

// Runs `call`, which gives an error code, as the body of an export that returns BOOL.
template <typename Call>
BOOL Answer(Call call) noexcept {
  std::uint32_t error = kErrorNoSystemResources;
  try {
    error = call();
  } catch (...) {  // out of memory
  }
  if (error == kOk) return TRUE;
  ::SetLastError(error);
  return FALSE;
}

inline std::span<std::uint8_t> AsBytes(void* data, UINT bytes) noexcept {
  return {static_cast<std::uint8_t*>(data), data != nullptr ? bytes : 0};
}

inline std::span<const std::uint8_t> AsBytes(const void* data, UINT bytes) noexcept {
  return {static_cast<const std::uint8_t*>(data), data != nullptr ? bytes : 0};
}

}  // namespace driver
