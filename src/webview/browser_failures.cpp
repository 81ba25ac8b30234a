#include "webview/browser_failures.h"

#include <string_view>
#include <utility>

#include "text/strings.h"

namespace webview {
namespace {

constexpr std::uint32_t kAborted = 0x80004004;
constexpr std::uint32_t kFileNotFound = 0x80070002;
constexpr std::uint32_t kModuleNotFound = 0x8007007E;
constexpr std::uint32_t kUninstalled = 0x8007064E;

struct KnownCause {
  std::uint32_t result;
  std::wstring_view text;
};

// From the runtime's documentation and from reports of its users.
constexpr KnownCause kKnownCauses[] = {
    {kFileNotFound, L"本机未找到 WebView2 运行时。"},
    {kModuleNotFound, L"WebView2 运行时的文件缺失或版本不符，请重新安装。"},
    {kUninstalled, L"WebView2 运行时已被卸载，请重新安装。"},
    {0x80070005, L"拒绝访问，无法写入界面数据文件夹。"},
    {0x80070050, L"界面数据文件夹的位置上有一个同名文件。"},
    {0x80070070, L"磁盘空间不足。"},
    {0x8007139F, L"界面数据文件夹正由另一程序以不同的选项使用，或窗口已关闭。"},
    {0x80080005, L"浏览器进程未能启动。"},
    {kAborted, L"窗口在界面创建完成之前已关闭。"},
    {0x80004005, L"浏览器进程无法启动。"},
    {0x8000FFFF, L"运行时内部出错，或对界面数据文件夹没有权限。"},
};

constexpr wchar_t kNothingGiven[] = L"运行时没有给出结果。";
constexpr wchar_t kNoText[] = L"系统未给出说明。";

bool IsFailure(std::uint32_t result) noexcept {
  return (result & 0x80000000) != 0;
}

// The system's tables hold its own codes without the HRESULT facility.
std::uint32_t SystemCode(std::uint32_t result) noexcept {
  constexpr std::uint32_t kFromSystem = 0x80070000;
  return (result & 0xFFFF0000) == kFromSystem ? result & 0xFFFF : result;
}

std::wstring CauseOf(std::uint32_t result,
                     const std::function<std::wstring(std::uint32_t code)>& systemText) {
  // A success without an object is reported as a failure too.
  if (!IsFailure(result)) return kNothingGiven;
  for (const KnownCause& known : kKnownCauses) {
    if (known.result == result) return std::wstring(known.text);
  }
  std::wstring text = text::Trim(systemText(SystemCode(result)));
  return text.empty() ? kNoText : text;
}

std::wstring EightDigits(std::uint32_t value) {
  std::wstring digits;
  for (int shift = 28; shift >= 0; shift -= 4) digits += L"0123456789ABCDEF"[value >> shift & 0xF];
  return digits;
}

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

std::wstring FailureCause(std::uint32_t result,
                          const std::function<std::wstring(std::uint32_t code)>& systemText) {
  return L"错误 0x" + EightDigits(result) + L"：" + CauseOf(result, systemText);
}

bool MayBeTheFolder(std::uint32_t result) noexcept {
  return result != kFileNotFound && result != kModuleNotFound && result != kUninstalled &&
         result != kAborted;
}

PageFailureResponse PageFailures::OnFailure(ProcessFailedKind kind, Time now) {
  // The control is closed and the engineer informed; late reports change nothing.
  if (givenUp_) return {};
  switch (kind) {
    case ProcessFailedKind::BrowserExited:
      // An exiting browser ends its renderer too and may report both.
      if (std::exchange(rendererJustLost_, false)) return {PageRecovery::MakeAnew, L""};
      return Lose(PageRecovery::MakeAnew, kBrowserGone, now);
    case ProcessFailedKind::RendererExited:
      rendererJustLost_ = true;
      // The control shows an error page until it is navigated again.
      return Lose(PageRecovery::ShowPage, kRendererGone, now);
    case ProcessFailedKind::RendererUnresponsive:
      return OnUnresponsive(now);
    default:
      // The browser restarts these by itself. Numbers of newer runtimes count as such helpers.
      return {PageRecovery::None, std::wstring(kHelperGone) + HelperName(kind) + kHelperEnd};
  }
}

void PageFailures::OnPageAlive() noexcept {
  unresponsive_.reset();
  rendererJustLost_ = false;
}

// The runtime repeats the report every few seconds while the page hangs. The second report means
// that the page is lost; a report long after the last one starts a new count. A new control is
// created, because a page loaded into the hanging process might hang too.
PageFailureResponse PageFailures::OnUnresponsive(Time now) {
  const std::optional<Time> last = std::exchange(unresponsive_, now);
  if (!last || now - *last > kMinute) return {PageRecovery::None, kHangs};
  unresponsive_.reset();
  return Lose(PageRecovery::MakeAnew, kStillHangs, now);
}

PageFailureResponse PageFailures::Lose(PageRecovery recovery, const wchar_t* text, Time now) {
  // The oldest of three losses may be just under a minute old.
  std::erase_if(losses_, [now](Time loss) { return now - loss >= kMinute; });
  losses_.push_back(now);
  if (losses_.size() < kMaxLosses) return {recovery, text};
  givenUp_ = true;
  return {PageRecovery::GiveUp, kGivenUp};
}

}  // namespace webview
