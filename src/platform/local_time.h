#pragma once

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

// The present moment. Windows only; any thread.
LocalTime LocalTimeNow();

}  // namespace platform
