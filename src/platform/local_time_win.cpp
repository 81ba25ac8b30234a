#include "platform/local_time.h"

#include "platform/windows_sdk.h"

namespace platform {

LocalTime LocalTimeNow() {
  SYSTEMTIME now = {};
  ::GetLocalTime(&now);
  return {now.wYear, now.wMonth, now.wDay, now.wHour, now.wMinute, now.wSecond};
}

}  // namespace platform
