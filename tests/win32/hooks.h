#pragma once

#include <string>
#include <vector>

#include "win32/functions.h"

namespace win32 {

class Calls;

// The functions in the program's import table that hand each call to the Calls of the moment.
// Everything here, and what it calls, uses the real functions only.
class Hooks {
 public:
  // Guards all that is recorded. Not recursive.
  class Lock {
   public:
    Lock() noexcept;
    ~Lock();
    Lock(const Lock&) = delete;
    Lock& operator=(const Lock&) = delete;
  };

  static void Attach(Calls* calls);  // puts the hooks in
  static void Detach();              // and takes them out
  static Calls* Current() noexcept;

  static DWORD ThreadId() noexcept;
  static DWORD LastError() noexcept;
  static void SetLastError(DWORD error) noexcept;
  // From the start of the program's module, wherever that was loaded.
  static unsigned long long OffsetInProgram(const void* address);
  // The file <program>.exe.calls, which is begun anew by each run.
  static void AppendToRecord(const std::vector<std::string>& lines);
};

}  // namespace win32
