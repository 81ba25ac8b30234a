#pragma once

#include <cstdint>

#include "platform/unique_handle.h"
#include "platform/windows_sdk.h"

// The stand-in library, loaded by path and bound by name, like an independent program.

struct Record {  // 80 bytes, written independently from the published layout
  std::int64_t timestamp;
  std::uint32_t flags;
  std::uint32_t reserved;
  std::uint32_t interfaceIndex;
  std::uint32_t subInterfaceIndex;
  std::uint8_t rest[56];
};

struct ModuleTraits {
  using Raw = HMODULE;
  static Raw Invalid() noexcept { return nullptr; }
  static bool IsValid(Raw module) noexcept { return module != nullptr; }
  static void Close(Raw module) noexcept { ::FreeLibrary(module); }
};

// lab/driver/WinDivert.dll of this program's build. Throws std::runtime_error if it cannot be
// loaded.
class Library {
 public:
  Library();
  // Null without such an export.
  [[nodiscard]] void* Find(const char* name) const;

 private:
  template <typename Function>
  Function Bind(const char* name) const {
    return reinterpret_cast<Function>(Find(name));
  }
  platform::UniqueHandle<ModuleTraits> module_;  // first, so that Bind() can use it

 public:
  using Open = HANDLE (*)(const char*, int, INT16, UINT64);
  using Recv = BOOL (*)(HANDLE, void*, UINT, UINT*, Record*);
  using Send = BOOL (*)(HANDLE, const void*, UINT, UINT*, const Record*);
  using RecvEx = BOOL (*)(HANDLE, void*, UINT, UINT*, UINT64, Record*, UINT*, OVERLAPPED*);
  using SendEx = BOOL (*)(HANDLE, const void*, UINT, UINT*, UINT64, const Record*, UINT,
                          OVERLAPPED*);
  using Compile = BOOL (*)(const char*, int, char*, UINT, const char**, UINT*);
  Open open;
  Recv recv;
  RecvEx recvEx;
  Send send;
  SendEx sendEx;
  BOOL (*shutdown)(HANDLE, int);
  BOOL (*close)(HANDLE);
  BOOL (*setParam)(HANDLE, int, UINT64);
  BOOL (*getParam)(HANDLE, int, UINT64*);
  BOOL (*calc)(void*, UINT, Record*, UINT64);
  Compile compile;
  BOOL (*eval)(const char*, const void*, UINT, const Record*);
};
