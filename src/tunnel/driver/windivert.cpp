#include "tunnel/driver/windivert.h"

#include <algorithm>
#include <exception>

#include "platform/system_error.h"
#include "text/utf8.h"

namespace tunnel {
namespace {

constexpr std::uint32_t kServiceDisabled = 1058;
constexpr std::uint32_t kMarkedForDeletion = 1072;

struct KnownError {
  std::uint32_t code;
  const wchar_t* meaning;  // with its cure
};

// Codes seen on real systems, with their actual causes.
constexpr KnownError kKnownErrors[] = {
    {2,
     L"找不到驱动文件 WinDivert64.sys，多半被杀毒软件隔离。请在杀毒软件中恢复并信任它，再重新启动本"
     L"程序。"},
    {5, L"没有加载驱动的权限。请以管理员身份运行本程序。"},
    {87,
     L"驱动不接受过滤条件：网段过多（最多 124 个，局域网发现开启时 123 "
     L"个），或另一程序加载了旧版驱动。请减少网段，或关闭其它使用 WinDivert 的程序后重试。"},
    {126,
     L"运行目录中没有 WinDivert.dll，多半被杀毒软件隔离。请在杀毒软件中恢复并信任它，再重新启动本程"
     L"序。"},
    {225, L"驱动文件被杀毒软件拦截。请在杀毒软件中信任本程序的运行目录后重试。"},
    {577,
     L"系统不接受驱动文件的数字签名，文件可能已损坏。请重新下载本程序；仍然如此时，请检查“内核隔离 "
     L"- "
     L"内存完整性”设置。"},
    {kServiceDisabled,
     L"驱动服务已被停用，多半是另一程序的 WinDivert "
     L"驱动留下的。请关闭该程序后重试，或重新启动电脑。"},
    {1060, L"驱动服务没有安装成功，多半被杀毒软件拦截。请信任本程序后重试，或重新启动电脑。"},
    {kMarkedForDeletion,
     L"旧的驱动服务正在删除，仍被另一程序占用。请关闭其它使用 WinDivert "
     L"的程序后重试，或重新启动电脑。"},
    {1275,
     L"驱动被系统策略阻止（内存完整性、智能应用控制或杀毒软件）。请在“Windows "
     L"安全中心”中允许它，或联系管理员。"},
    {1753, L"系统的筛选引擎没有运行。请在“服务”中启动“Base Filtering Engine”后重试。"},
};

constexpr wchar_t kOtherwise[] = L" 请重新启动电脑后重试。";

std::string WithCode(const std::string& text, std::uint32_t code) {
  return code == 0 ? text : text + "\r\n" + text::ToUtf8(DescribeDriverError(code));
}

// Version 2.x of the driver names its kernel service WinDivert, repackaged builds also WinDivert64.
// Each is stopped before it is deleted: deleting only marks a running service.
constexpr const wchar_t* kServiceCommands[] = {L"sc stop WinDivert64", L"sc delete WinDivert64",
                                               L"sc stop WinDivert", L"sc delete WinDivert"};
constexpr std::chrono::milliseconds kCommandWait{5000};

}  // namespace

DriverError::DriverError(const std::string& text, std::uint32_t code)
    : std::runtime_error(WithCode(text, code)), code_(code) {}

std::wstring DescribeDriverError(std::uint32_t code) {
  const std::wstring number = L"错误 " + std::to_wstring(code);
  const auto* const known = std::ranges::find_if(
      kKnownErrors, [code](const KnownError& one) { return one.code == code; });
  if (known != std::end(kKnownErrors)) return number + L"：" + known->meaning;
  const std::wstring reason = platform::ErrorReason(code);
  // Without a text of the system the reason is the number itself, which must not appear twice.
  return (reason == number ? number : number + L"：" + reason) + kOtherwise;
}

bool IsDriverLeftover(std::uint32_t code) noexcept {
  return code == kServiceDisabled || code == kMarkedForDeletion;
}

void RemoveDriverService(const HiddenRunner& runHidden) noexcept {
  for (const wchar_t* const command : kServiceCommands) {
    try {
      runHidden(command, kCommandWait);
    } catch (const std::exception&) {
      // The command could not be started; the next one may work.
    }
  }
}

}  // namespace tunnel
