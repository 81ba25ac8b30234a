#include "webview/failure_text.h"

#include <string_view>

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

// As the runtime's documentation and its users' reports explain them.
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

// The system's tables hold its own codes bare.
std::uint32_t SystemCode(std::uint32_t result) noexcept {
  constexpr std::uint32_t kFromSystem = 0x80070000;
  return (result & 0xFFFF0000) == kFromSystem ? result & 0xFFFF : result;
}

std::wstring CauseOf(std::uint32_t result, const SystemText& systemText) {
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

}  // namespace

std::wstring FailureCause(std::uint32_t result, const SystemText& systemText) {
  return L"错误 0x" + EightDigits(result) + L"：" + CauseOf(result, systemText);
}

bool MayBeTheFolder(std::uint32_t result) noexcept {
  return result != kFileNotFound && result != kModuleNotFound && result != kUninstalled &&
         result != kAborted;
}

}  // namespace webview
