#include "platform/machine_win.h"

#include "platform/get_proc_address.h"
#include "platform/windows_sdk.h"

namespace platform {

// Found by name: the first Windows 10, which some machines keep for good, has no such function, and
// no ARM64 either.
bool IsArm64Windows() {
  using Ask = BOOL(WINAPI*)(HANDLE process, USHORT * processMachine, USHORT * nativeMachine);
  const auto ask = GetProcAddressAs<Ask>(::GetModuleHandleW(L"kernel32.dll"), "IsWow64Process2");
  USHORT process = IMAGE_FILE_MACHINE_UNKNOWN;
  USHORT native = IMAGE_FILE_MACHINE_UNKNOWN;
  if (ask == nullptr || ask(::GetCurrentProcess(), &process, &native) == FALSE) return false;
  return native == IMAGE_FILE_MACHINE_ARM64;
}

}  // namespace platform
