#pragma once

#include "platform/unique_handle.h"
#include "platform/windows_sdk.h"
// After the SDK, which it needs.
#include <winhttp.h>

// Owners for the kinds of Windows handles that the program uses.
namespace platform {

// Files and other kernel objects that CloseHandle closes. Depending on the call, the API returns
// nullptr or INVALID_HANDLE_VALUE for "no handle"; both are empty here.
struct KernelHandleTraits {
  using Raw = HANDLE;
  static Raw Invalid() noexcept { return nullptr; }
  static bool IsValid(Raw handle) noexcept {
    return handle != nullptr && handle != INVALID_HANDLE_VALUE;
  }
  static void Close(Raw handle) noexcept { ::CloseHandle(handle); }
};
using FileHandle = UniqueHandle<KernelHandleTraits>;
// Others may read, write, rename and delete the file while it is open.
inline constexpr DWORD kShareAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
using ProcessHandle = UniqueHandle<KernelHandleTraits>;
using ThreadHandle = UniqueHandle<KernelHandleTraits>;

// From LoadLibrary; never one borrowed by GetModuleHandle.
struct ModuleTraits {
  using Raw = HMODULE;
  static Raw Invalid() noexcept { return nullptr; }
  static bool IsValid(Raw module) noexcept { return module != nullptr; }
  static void Close(Raw module) noexcept { ::FreeLibrary(module); }
};
using Module = UniqueHandle<ModuleTraits>;

// An open registry key; never a predefined one.
struct RegistryKeyTraits {
  using Raw = HKEY;
  static Raw Invalid() noexcept { return nullptr; }
  static bool IsValid(Raw key) noexcept { return key != nullptr; }
  static void Close(Raw key) noexcept { ::RegCloseKey(key); }
};
using RegistryKey = UniqueHandle<RegistryKeyTraits>;

// A WinHTTP session, connection or request.
struct HttpHandleTraits {
  using Raw = HINTERNET;
  static Raw Invalid() noexcept { return nullptr; }
  static bool IsValid(Raw handle) noexcept { return handle != nullptr; }
  static void Close(Raw handle) noexcept { ::WinHttpCloseHandle(handle); }
};
using HttpHandle = UniqueHandle<HttpHandleTraits>;

}  // namespace platform
