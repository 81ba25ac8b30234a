#include "shell/system_notices.h"

#include "platform/unique_handle.h"
#include "shell/window_messages.h"
// After the SDK, which they need; the second needs the first.
// clang-format off
#include <iphlpapi.h>
#include <netioapi.h>
#include <wtsapi32.h>
// clang-format on

namespace shell {
namespace {

struct PowerNoticeTraits {
  using Raw = HPOWERNOTIFY;
  static Raw Invalid() noexcept { return nullptr; }
  static bool IsValid(Raw notice) noexcept { return notice != nullptr; }
  static void Close(Raw notice) noexcept { ::UnregisterSuspendResumeNotification(notice); }
};

// Closing it waits for a callback under way.
struct AddressNoticeTraits {
  using Raw = HANDLE;
  static Raw Invalid() noexcept { return nullptr; }
  static bool IsValid(Raw notice) noexcept { return notice != nullptr; }
  static void Close(Raw notice) noexcept { ::CancelMibChangeNotify2(notice); }
};

// On a thread of the system's. The window outlives the subscription, and a full queue loses nothing
// that the next change would not tell as well.
void WINAPI OnAddressChange(void* window, MIB_UNICASTIPADDRESS_ROW*, MIB_NOTIFICATION_TYPE) {
  ::PostMessageW(static_cast<HWND>(window), kAddressesChanged, 0, 0);
}

class Subscription final : public SystemNotices {
 public:
  explicit Subscription(HWND window)
      : window_(window),
        power_(::RegisterSuspendResumeNotification(window, DEVICE_NOTIFY_WINDOW_HANDLE)),
        hasSession_(::WTSRegisterSessionNotification(window, NOTIFY_FOR_THIS_SESSION) != FALSE) {
    HANDLE notice = nullptr;
    if (::NotifyUnicastIpAddressChange(AF_INET, OnAddressChange, window, FALSE, &notice) ==
        NO_ERROR) {
      addresses_.Reset(notice);
    }
  }
  ~Subscription() override {
    if (hasSession_) ::WTSUnRegisterSessionNotification(window_);
  }
  Subscription(const Subscription&) = delete;
  Subscription& operator=(const Subscription&) = delete;

 private:
  const HWND window_;
  const platform::UniqueHandle<PowerNoticeTraits> power_;
  const bool hasSession_;
  platform::UniqueHandle<AddressNoticeTraits> addresses_;
};

}  // namespace

std::unique_ptr<SystemNotices> SubscribeToSystem(HWND window) {
  return std::make_unique<Subscription>(window);
}

}  // namespace shell
