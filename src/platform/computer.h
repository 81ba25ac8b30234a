#pragma once

// This computer's clock and processor. Any thread.
namespace platform {

// A moment on the user's clock.
struct LocalTime {
  int year = 0;
  int month = 1;  // 1 to 12
  int day = 1;    // 1 to 31
  int hour = 0;
  int minute = 0;
  int second = 0;
};

// Windows only.
LocalTime LocalTimeNow();

// True on Windows for ARM64 processors, which runs x64 programs but none of their drivers. Windows
// only.
bool IsArm64Windows();

}  // namespace platform
