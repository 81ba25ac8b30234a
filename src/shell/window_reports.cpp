#include "shell/actions.h"
#include "shell/page_link.h"
#include "shell/window_events.h"
#include "shell/window_messages.h"
#include "shell/worker.h"
#include "text/strings.h"

namespace shell {
namespace {

constexpr wchar_t kTunnelStopped[] =
    L"\r\n中心服务未接受心跳，已停止本机软件隧道，避免显示假在线。";
constexpr wchar_t kLinkLost[] = L"警告：中继连接中断，软件隧道正在自动重连。";
constexpr wchar_t kLinkFound[] = L"软件隧道已重新在线。";
constexpr wchar_t kUdpReady[] = L"UDP 通道已就绪：小数据包经 UDP 传输。";
constexpr wchar_t kUdpNotReady[] =
    L"提示：UDP 通道不可用，小数据包改经 WebSocket 传输，连接不受影响。";

}  // namespace

void OnJobFinished(AppState& state, const std::wstring& text) {
  FinishJob(state, text);
}

void OnHeartbeatRefused(AppState& state, std::wstring text) {
  state.heartbeatRunning.exchange(false);
  if (!state.settings.Read().heartbeatAccepted && state.tunnel->IsRunning()) {
    text += kTunnelStopped;
    const std::wstring stopped = state.tunnel->Stop();
    if (!stopped.empty()) text.append(text::kLineBreak).append(stopped);
  }
  PostApplyMessage(state);
  PostStateMessage(state);
  Log(state, text);
  Repaint(state.window);
}

void OnNotice(AppState& state, const std::wstring& text) {
  if (!text.empty()) Log(state, text);
  Repaint(state.window);
}

void OnLinkChanged(AppState& state, bool connected) {
  if (!state.tunnel->IsRunning()) return;
  PostStateMessage(state);
  Log(state, connected ? kLinkFound : kLinkLost);
}

void OnUdpChanged(AppState& state, bool ready) {
  if (state.tunnel->IsRunning()) Log(state, ready ? kUdpReady : kUdpNotReady);
}

LRESULT OnTimer(AppState& state, WPARAM wParam, LPARAM lParam) {
  if (wParam == kUnusedTimer) return 0;
  if (wParam == kResultTimer) {
    TakeStrandedResult(state);
    return 0;
  }
  if (wParam == kAddressTimer) {
    TakeAddressChange(state);
    return 0;
  }
  if (wParam != kRetryTimer) return ::DefWindowProcW(state.window, WM_TIMER, wParam, lParam);
  RetryConnect(state);
  return 0;
}

LRESULT OnCommand(AppState& state, WPARAM wParam, LPARAM lParam) {
  const auto control = reinterpret_cast<HWND>(lParam);
  if (HandleCommand(state, LOWORD(wParam), HIWORD(wParam), control)) return 0;
  return ::DefWindowProcW(state.window, WM_COMMAND, wParam, lParam);
}

}  // namespace shell
