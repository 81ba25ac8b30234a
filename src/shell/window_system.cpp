#include <algorithm>
#include <chrono>
#include <functional>
#include <future>

#include "platform/unique_handle.h"
#include "settings/settings.h"
#include "shell/main_window.h"
#include "shell/window_messages.h"
// After the SDK, which they need; the second needs the first.
// clang-format off
#include <iphlpapi.h>
#include <netioapi.h>
#include <wtsapi32.h>
// clang-format on

namespace shell {
namespace {

constexpr wchar_t kMayEnd[] = L"Windows 即将注销或关机。";
constexpr wchar_t kGoesOn[] = L"注销或关机已取消。";
constexpr wchar_t kEnding[] = L"Windows 正在结束会话：停止软件隧道，移除系统代理旁路。";
constexpr wchar_t kEnded[] = L"软件隧道已停止，设置已保存。";
constexpr wchar_t kCutShort[] = L"警告：会话结束前未能完成全部清理。";

struct SessionLine {
  WPARAM change;
  const wchar_t* line;
};
constexpr SessionLine kSessionLines[] = {
    {WTS_CONSOLE_CONNECT, L"用户会话已切换回本机屏幕。"},
    {WTS_CONSOLE_DISCONNECT, L"用户会话已离开本机屏幕，软件继续运行。"},
    {WTS_REMOTE_CONNECT, L"用户会话已由 Windows 远程桌面接入。"},
    {WTS_REMOTE_DISCONNECT, L"Windows 远程桌面已断开，软件继续运行。"},
    {WTS_SESSION_LOGON, L"用户已登录。"},
    {WTS_SESSION_LOGOFF, L"用户正在注销。"},
    {WTS_SESSION_LOCK, L"电脑已锁定，软件继续运行。"},
    {WTS_SESSION_UNLOCK, L"电脑已解锁。"},
};

// Windows allows five seconds and then ends the process wherever it is.
constexpr std::chrono::milliseconds kEndTime{2500};
constexpr DWORD kPollMs = 20;

struct PowerNoticeTraits {
  using Raw = HPOWERNOTIFY;
  static Raw Invalid() noexcept { return nullptr; }
  static bool IsValid(Raw notice) noexcept { return notice != nullptr; }
  static void Close(Raw notice) noexcept { ::UnregisterSuspendResumeNotification(notice); }
};

// Closing waits for a callback that is running.
struct AddressNoticeTraits {
  using Raw = HANDLE;
  static Raw Invalid() noexcept { return nullptr; }
  static bool IsValid(Raw notice) noexcept { return notice != nullptr; }
  static void Close(Raw notice) noexcept { ::CancelMibChangeNotify2(notice); }
};

// On a thread of the system. The window outlives the subscription. A full queue loses nothing that
// the next change would not report as well.
void WINAPI OnAddressChange(void* window, MIB_UNICASTIPADDRESS_ROW*, MIB_NOTIFICATION_TYPE) {
  ::PostMessageW(static_cast<HWND>(window), kAddressesChanged, 0, 0);
}

class Subscription {
 public:
  explicit Subscription(HWND window)
      : window_(window),
        power_(::RegisterSuspendResumeNotification(window, DEVICE_NOTIFY_WINDOW_HANDLE)),
        hasSession_(::WTSRegisterSessionNotification(window, NOTIFY_FOR_THIS_SESSION) != FALSE) {
    // AF_INET: the tunnel carries IPv4 only. FALSE: a first notice would report no change. A handle
    // that comes with an error is not ours to close.
    HANDLE notice = nullptr;
    if (::NotifyUnicastIpAddressChange(AF_INET, OnAddressChange, window, FALSE, &notice) ==
        NO_ERROR) {
      addresses_.Reset(notice);
    }
  }
  ~Subscription() {
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

std::shared_ptr<void> SubscribeToSystem(HWND window) {
  return std::make_shared<Subscription>(window);
}

// The change of the proxy list is sent to every window and would wait for this one; so would the
// emptying of the clipboard, which is sent to the window that filled it.
bool AnswerUntil(const std::function<bool()>& haveEnded) {
  const auto end = std::chrono::steady_clock::now() + kEndTime;
  while (!haveEnded()) {
    if (std::chrono::steady_clock::now() >= end) return false;
    ::MsgWaitForMultipleObjects(0, nullptr, FALSE, kPollMs, QS_SENDMESSAGE);
    // Answers sent messages. Posted ones stay queued, so that no click or timer runs in between.
    MSG message{};
    ::PeekMessageW(&message, nullptr, 0, 0, PM_NOREMOVE | PM_QS_SENDMESSAGE);
  }
  return true;
}

LRESULT MainWindow::OnPowerBroadcast(WPARAM event) {
  if (event == PBT_APMSUSPEND) client_.OnSleep();
  // Sent for every wake; PBT_APMRESUMESUSPEND follows only if a user is present.
  if (event == PBT_APMRESUMEAUTOMATIC) client_.OnWake(::GetTickCount64());
  return TRUE;
}

LRESULT MainWindow::OnSessionChange(WPARAM change) {
  for (const SessionLine& known : kSessionLines) {
    if (known.change == change) client_.Log(known.line);
  }
  return 0;
}

// Docking or a new lease brings several notices within a moment; the timer makes one event of them.
LRESULT MainWindow::OnAddressesChanged() {
  ::SetTimer(window_, kAddressTimer, kAddressMs, nullptr);
  return 0;
}

LRESULT MainWindow::OnQueryEndSession() {
  client_.Log(kMayEnd);
  // Nothing is cleaned up before WM_ENDSESSION: the end may still be cancelled.
  return TRUE;
}

LRESULT MainWindow::OnEndSession(bool ends) {
  if (!ends) {
    client_.Log(kGoesOn);
    return 0;
  }
  client_.Log(kEnding);
  // The window stays until the system ends the process, but starts no more jobs.
  client_.RequestEnd();
  client_.DisarmRetry();
  StartEndings();
  const bool isWhole = AnswerUntil([this] { return HasWorkerEnded() && HaveEndingsEnded(); });
  client_.SaveUnsaved();
  client_.Log(isWhole ? kEnded : kCutShort);
  return 0;
}

// In parallel, because each may wait for others: the service commands, every window of the session.
void MainWindow::StartEndings() {
  const auto routes = settings::ConnectionInForce(client_.Settings().Read()).routes;
  endings_.push_back(std::async(std::launch::async, [this] { client_.Tunnel().StopForGood(); }));
  endings_.push_back(
      std::async(std::launch::async, [this, routes] { deps_->RemoveProxyBypass(routes); }));
  endings_.push_back(std::async(std::launch::async, [this] { deps_->ForgetPassword(); }));
}

bool MainWindow::HaveEndingsEnded() const {
  return std::ranges::all_of(endings_, [](const std::future<void>& ending) {
    return ending.wait_for(std::chrono::seconds(0)) == std::future_status::ready;
  });
}

}  // namespace shell
