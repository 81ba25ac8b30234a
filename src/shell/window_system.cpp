#include <algorithm>
#include <chrono>
#include <functional>
#include <future>
#include <memory>
#include <utility>

#include "platform/detached_thread.h"
#include "settings/settings.h"
#include "shell/page_link.h"
#include "shell/window_events.h"
#include "shell/window_messages.h"
#include "shell/worker.h"
// After the SDK, which it needs.
#include <wtsapi32.h>

namespace shell {
namespace {

constexpr wchar_t kAsleep[] = L"电脑即将睡眠。";
constexpr wchar_t kAsleepOnline[] = L"电脑即将睡眠，远程连接会中断，唤醒后自动恢复。";
constexpr wchar_t kAwake[] = L"电脑已唤醒。";
constexpr wchar_t kAwakeOnline[] = L"电脑已唤醒，正在检查中继连接。";
constexpr wchar_t kMoved[] = L"本机网络地址已变化。";
constexpr wchar_t kMovedOnline[] = L"本机网络地址已变化，正在检查中继连接。";
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

// Windows gives five seconds and then ends the process, in the middle of whatever it does.
constexpr std::chrono::milliseconds kEndTime{2500};
constexpr DWORD kLookMs = 20;
constexpr ULONGLONG kSameWakeMs = 5000;

// A line of its own for a computer whose tunnel is about to be looked at.
void LogAndLook(AppState& state, const wchar_t* line, const wchar_t* lineOnline) {
  const bool isOnline = state.tunnel->IsRunning();
  Log(state, isOnline ? lineOnline : line);
  if (isOnline) state.tunnel->LookAtNetwork();
}

bool HasWorkerEnded(const AppState& state) {
  return !state.worker.joinable() ||
         ::WaitForSingleObject(state.workerEnded.Get(), 0) == WAIT_OBJECT_0;
}

bool HaveEndingsEnded(const AppState& state) {
  return std::ranges::all_of(state.endings, [](const std::future<void>& ending) {
    return ending.wait_for(std::chrono::seconds(0)) == std::future_status::ready;
  });
}

// Answers meanwhile what others send to this window: the change of the proxy list is sent to every
// window, and would wait for this one; so is the emptying of the clipboard to whoever has filled
// it.
bool AnswerUntil(const std::function<bool()>& haveEnded) {
  const auto end = std::chrono::steady_clock::now() + kEndTime;
  while (!haveEnded()) {
    if (std::chrono::steady_clock::now() >= end) return false;
    ::MsgWaitForMultipleObjects(0, nullptr, FALSE, kLookMs, QS_SENDMESSAGE);
    MSG message{};
    ::PeekMessageW(&message, nullptr, 0, 0, PM_NOREMOVE | PM_QS_SENDMESSAGE);
  }
  return true;
}

// Side by side, as each may wait for others: the service commands, every window of the session.
void StartEndings(AppState& state) {
  const auto routes = settings::ConnectionInForce(state.settings.Read()).routes;
  state.endings.push_back(
      std::async(std::launch::async, [&state] { state.tunnel->StopForGood(); }));
  state.endings.push_back(std::async(
      std::launch::async, [&state, routes] { state.surroundings.removeProxyBypass(routes); }));
  state.endings.push_back(
      std::async(std::launch::async, [&state] { state.surroundings.forgetPassword(); }));
}

void FallAsleep(AppState& state) {
  if (std::exchange(state.isAsleep, true)) return;
  Log(state, state.tunnel->IsRunning() ? kAsleepOnline : kAsleep);
}

// A wake that no sleep was told before counts too, unless it is the one just told.
void WakeUp(AppState& state) {
  const ULONGLONG nowMs = ::GetTickCount64();
  const bool wasAsleep = std::exchange(state.isAsleep, false);
  if (!wasAsleep && nowMs - state.wokenMs < kSameWakeMs) return;
  state.wokenMs = nowMs;
  LogAndLook(state, kAwake, kAwakeOnline);
}

}  // namespace

// Every window is told of sleep and wake on some computers, and one that has subscribed once more.
LRESULT OnPowerBroadcast(AppState& state, WPARAM event) {
  if (event == PBT_APMSUSPEND) FallAsleep(state);
  if (event == PBT_APMRESUMEAUTOMATIC) WakeUp(state);
  return TRUE;
}

LRESULT OnSessionChange(AppState& state, WPARAM change) {
  for (const SessionLine& known : kSessionLines) {
    if (known.change == change) Log(state, known.line);
  }
  return 0;
}

// Docking or a new lease brings several notices within a moment; they are one event.
LRESULT OnAddressesChanged(AppState& state) {
  ::SetTimer(state.window, kAddressTimer, kAddressMs, nullptr);
  return 0;
}

void TakeAddressChange(AppState& state) {
  ::KillTimer(state.window, kAddressTimer);
  LogAndLook(state, kMoved, kMovedOnline);
}

// On a thread that is let go: a program that does not give the clipboard back must not keep this
// one from ending.
void ForgetPassword(AppState& state) noexcept {
  try {
    const auto done = std::make_shared<std::promise<void>>();
    const std::future<void> ended = done->get_future();
    platform::StartDetached([done, forget = state.surroundings.forgetPassword] {
      forget();
      done->set_value();
    });
    AnswerUntil(
        [&ended] { return ended.wait_for(std::chrono::seconds(0)) == std::future_status::ready; });
  } catch (...) {  // no thread to be had: the window goes all the same
  }
}

LRESULT OnQueryEndSession(AppState& state) {
  Log(state, kMayEnd);
  return TRUE;
}

LRESULT OnEndSession(AppState& state, bool ends) {
  if (!ends) {
    Log(state, kGoesOn);
    return 0;
  }
  Log(state, kEnding);
  state.closing.request_stop();
  DisarmRetry(state);
  StartEndings(state);
  const bool isWhole =
      AnswerUntil([&state] { return HasWorkerEnded(state) && HaveEndingsEnded(state); });
  if (!state.settings.Unsaved().empty()) state.settings.Save();
  LogSettingsReports(state);
  Log(state, isWhole ? kEnded : kCutShort);
  return 0;
}

}  // namespace shell
