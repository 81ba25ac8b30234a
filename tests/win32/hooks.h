#pragma once

#include <string>
#include <vector>

#include "win32/functions.h"

namespace win32 {

class Calls;

// The functions in the program's import table, which pass each call to the current Calls.
// Everything here, and everything that it calls, uses only the real functions.
class Hooks {
 public:
  // Guards the records. Not recursive.
  class Lock {
   public:
    Lock() noexcept;
    ~Lock();
    Lock(const Lock&) = delete;
    Lock& operator=(const Lock&) = delete;
  };

  static void Attach(Calls* calls);  // installs the hooks
  static void Detach();              // and removes them
  static Calls* Current() noexcept;

  static DWORD ThreadId() noexcept;
  static DWORD LastError() noexcept;
  static void SetLastError(DWORD error) noexcept;
  // Relative to the program's module, which may be loaded anywhere.
  static unsigned long long OffsetInProgram(const void* address);
  // The file <program>.exe.calls, which each run starts anew.
  static void AppendToRecord(const std::vector<std::string>& lines);
};

}  // namespace win32
