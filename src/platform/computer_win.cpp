#include "platform/computer.h"

#include "platform/modules_win.h"

namespace platform {

LocalTime LocalTimeNow() {
  SYSTEMTIME now = {};
  ::GetLocalTime(&now);
  return {now.wYear, now.wMonth, now.wDay, now.wHour, now.wMinute, now.wSecond};
}

bool IsArm64Windows() {
  // Found by name: the first Windows 10, which some machines keep for good, lacks the function, and
  // does not run on ARM64 either.
  using Ask = BOOL(WINAPI*)(HANDLE process, USHORT * processMachine, USHORT * nativeMachine);
  const auto ask = GetProcAddressAs<Ask>(::GetModuleHandleW(L"kernel32.dll"), "IsWow64Process2");
  USHORT process = IMAGE_FILE_MACHINE_UNKNOWN;
  USHORT native = IMAGE_FILE_MACHINE_UNKNOWN;
  if (ask == nullptr || ask(::GetCurrentProcess(), &process, &native) == FALSE) return false;
  return native == IMAGE_FILE_MACHINE_ARM64;
}

}  // namespace platform
