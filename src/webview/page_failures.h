#pragma once

#include <chrono>
#include <deque>
#include <optional>
#include <string>

// What is done about a browser process that has died or hangs. Pure.
namespace webview {

// As WebView2 numbers them; other numbers may come from a newer runtime.
enum class ProcessFailedKind : int {
  BrowserExited = 0,
  RendererExited = 1,
  RendererUnresponsive = 2,
  FrameRendererExited = 3,
  UtilityExited = 4,
  SandboxHelperExited = 5,
  GpuExited = 6,
  PluginExited = 7,
  PluginBrokerExited = 8,
  Unknown = 9,
};

enum class PageRecovery {
  None,      // the page goes on by itself, or is given some more time
  ShowPage,  // the control lives, its page is gone: load it again
  MakeAnew,  // the control is of no more use: make another one
  GiveUp,    // it has failed too often: close the control and tell the engineer
};

struct PageFailureResponse {
  PageRecovery recovery = PageRecovery::None;
  std::wstring text;  // one line for the engineer's log; may be empty
};

// The engineer's message box once recovery is given up.
inline constexpr wchar_t kPageGivenUp[] =
    L"界面在一分钟内三次失效，已停止自动恢复。已建立的连接不受影响，关闭本窗口时才会断开。\r\n"
    L"请关闭本程序后重新打开；若再次出现，请重启电脑，或修复“Microsoft Edge WebView2 运行时”。";

// Decides on each report of a failed process. Three losses of the page within a minute end the
// recovery.
//
// Threads: one, the window's.
class PageFailures {
 public:
  using Time = std::chrono::steady_clock::time_point;

  PageFailureResponse OnFailure(ProcessFailedKind kind, Time now);
  // The page has posted something: it answers again.
  void OnPageAlive() noexcept;

 private:
  PageFailureResponse OnUnresponsive(Time now);
  PageFailureResponse Lose(PageRecovery recovery, const wchar_t* text, Time now);

  std::deque<Time> losses_;           // of the last minute
  std::optional<Time> unresponsive_;  // last report of a hanging page; empty while it answers
  bool rendererJustLost_ = false;     // and the page has not been heard since
  bool givenUp_ = false;
};

}  // namespace webview
