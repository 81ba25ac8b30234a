#include "webview/page_failures.h"

#include <utility>

namespace webview {
namespace {

using std::chrono_literals::operator""s;

constexpr auto kMinute = 60s;
constexpr std::size_t kMaxLosses = 3;

constexpr wchar_t kBrowserGone[] = L"警告：浏览器进程已退出，正在重新打开界面；连接不受影响。";
constexpr wchar_t kRendererGone[] = L"警告：页面进程已退出，正在重新载入界面；连接不受影响。";
constexpr wchar_t kHangs[] = L"警告：界面暂时没有响应；连接不受影响。";
constexpr wchar_t kStillHangs[] = L"警告：界面持续没有响应，正在重新打开界面；连接不受影响。";
constexpr wchar_t kGivenUp[] = L"界面恢复失败：一分钟内三次失效，已停止自动恢复；连接不受影响。";
constexpr wchar_t kHelperGone[] = L"提示：界面的辅助进程已退出（";
constexpr wchar_t kHelperEnd[] = L"），由浏览器自行恢复。";

const wchar_t* HelperName(ProcessFailedKind kind) {
  switch (kind) {
    case ProcessFailedKind::FrameRendererExited:
      return L"框架";
    case ProcessFailedKind::UtilityExited:
      return L"工具";
    case ProcessFailedKind::SandboxHelperExited:
      return L"沙箱";
    case ProcessFailedKind::GpuExited:
      return L"图形";
    case ProcessFailedKind::PluginExited:
    case ProcessFailedKind::PluginBrokerExited:
      return L"插件";
    default:
      return L"未知";
  }
}

}  // namespace

PageFailureResponse PageFailures::OnFailure(ProcessFailedKind kind, Time now) {
  if (givenUp_) return {};
  switch (kind) {
    case ProcessFailedKind::BrowserExited:
      // A browser that goes takes its renderer along and may report both.
      if (std::exchange(rendererJustLost_, false)) return {PageRecovery::MakeAnew, L""};
      return Lose(PageRecovery::MakeAnew, kBrowserGone, now);
    case ProcessFailedKind::RendererExited:
      rendererJustLost_ = true;
      return Lose(PageRecovery::ShowPage, kRendererGone, now);
    case ProcessFailedKind::RendererUnresponsive:
      return OnUnresponsive(now);
    default:
      return {PageRecovery::None, std::wstring(kHelperGone) + HelperName(kind) + kHelperEnd};
  }
}

void PageFailures::OnPageAlive() noexcept {
  unresponsive_.reset();
  rendererJustLost_ = false;
}

// The runtime repeats the report every some seconds while the page hangs. A page that hangs at its
// second report is lost; a report long after the last one begins another spell. The page is made
// anew, since one loaded in the hanging process might hang there, too.
PageFailureResponse PageFailures::OnUnresponsive(Time now) {
  const std::optional<Time> last = std::exchange(unresponsive_, now);
  if (!last || now - *last > kMinute) return {PageRecovery::None, kHangs};
  unresponsive_.reset();
  return Lose(PageRecovery::MakeAnew, kStillHangs, now);
}

PageFailureResponse PageFailures::Lose(PageRecovery recovery, const wchar_t* text, Time now) {
  std::erase_if(losses_, [now](Time loss) { return now - loss >= kMinute; });
  losses_.push_back(now);
  if (losses_.size() < kMaxLosses) return {recovery, text};
  givenUp_ = true;
  return {PageRecovery::GiveUp, kGivenUp};
}

}  // namespace webview
