#pragma once

#include <chrono>
#include <cstdint>
#include <deque>
#include <functional>
#include <optional>
#include <string>

// Failures of the browser: the cause when the control could not be created, and the response when
// one of its processes dies or hangs. Pure.
namespace webview {

// Describes `result`, an HRESULT, in one line: "错误 0x80070005：" and the cause. Usual failures
// have texts of our own, because the system's do not mention browsers; `systemText` returns the
// text for any other code, or nothing. A success stands for a runtime that returned no object.
std::wstring FailureCause(std::uint32_t result,
                          const std::function<std::wstring(std::uint32_t code)>& systemText);

// False when another data folder cannot help: there is no usable runtime, or the window is gone.
bool MayBeTheFolder(std::uint32_t result) noexcept;

// WebView2's numbers; a newer runtime may send others.
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
  None,      // the page recovers by itself, or gets more time
  ShowPage,  // the control lives, its page is gone: load it again
  MakeAnew,  // the control is unusable: create another one
  GiveUp,    // too many failures: close the control and inform the engineer
};

struct PageFailureResponse {
  PageRecovery recovery = PageRecovery::None;
  std::wstring text;  // one line for the engineer's log; may be empty
};

// The message box after giving up.
inline constexpr wchar_t kPageGivenUp[] =
    L"界面在一分钟内三次失效，已停止自动恢复。已建立的连接不受影响，关闭本窗口时才会断开。\r\n"
    L"请关闭本程序后重新打开；若再次出现，请重启电脑，或修复“Microsoft Edge WebView2 运行时”。";

// Decides what follows each report of a failed process. Three lost pages within a minute end the
// recovery. Threads: the window's.
class PageFailures {
 public:
  using Time = std::chrono::steady_clock::time_point;

  PageFailureResponse OnFailure(ProcessFailedKind kind, Time now);
  // The page has posted a message, so it responds.
  void OnPageAlive() noexcept;

 private:
  PageFailureResponse OnUnresponsive(Time now);
  PageFailureResponse Lose(PageRecovery recovery, const wchar_t* text, Time now);

  std::deque<Time> losses_;           // within the last minute
  std::optional<Time> unresponsive_;  // the last report of a hanging page; empty while it responds
  bool rendererJustLost_ = false;     // and the page has not posted since
  bool givenUp_ = false;
};

}  // namespace webview
