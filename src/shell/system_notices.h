#pragma once

#include <memory>

#include "platform/windows_sdk.h"

namespace shell {

// What the system tells a window while this lives, beside what every window is told:
// WM_POWERBROADCAST also on computers that only stand by, WM_WTSSESSION_CHANGE of its own session,
// and kAddressesChanged for every change of an IPv4 address of this computer, of which one event
// brings several.
//
// Threads: made and destroyed by the window's, while the window is there.
// Errors:  none; a notice that the system refuses does not come.
class SystemNotices {
 public:
  SystemNotices() = default;
  virtual ~SystemNotices() = default;
  SystemNotices(const SystemNotices&) = delete;
  SystemNotices& operator=(const SystemNotices&) = delete;
};

// The system's own.
std::unique_ptr<SystemNotices> SubscribeToSystem(HWND window);

}  // namespace shell
