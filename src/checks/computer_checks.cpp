#include "checks/computer_checks.h"

#include <array>
#include <cwchar>

#include "platform/system_error.h"
#include "text/utf8.h"

namespace checks {
namespace {

constexpr std::uint32_t kOldestMajor = 10;
constexpr std::uint64_t kMegabyte = 1 << 20;
// An update needs the program twice for a moment, and logs and settings some room.
constexpr std::uint64_t kNeededBytes = 20 * kMegabyte;
constexpr std::uint64_t kComfortableBytes = 500 * kMegabyte;

std::wstring Megabytes(std::uint64_t bytes) {
  return std::to_wstring(bytes / kMegabyte) + L" MB";
}

std::wstring HexCode(std::uint32_t code) {
  std::array<wchar_t, 16> buffer{};
  std::swprintf(buffer.data(), buffer.size(), L"0x%08X", code);
  return buffer.data();
}

void JudgeFolder(const FolderFacts& folder, Outcome& outcome) {
  std::wstring line = folder.name + L"：" + folder.path;
  // A folder that does not exist yet was judged by its parent.
  if (folder.probed != folder.path) line += L"（还没有，试的是上级 " + folder.probed + L"）";
  line += folder.error == 0 ? L" 可写" : L" 不可写";
  if (folder.freeBytes) line += L"，可用空间 " + Megabytes(*folder.freeBytes);
  outcome.Line(line);
  if (folder.error != 0) {
    outcome.Fault(
        folder.name + L"不能写入：错误 " + std::to_wstring(folder.error) + L"，" +
            platform::ErrorReason(folder.error),
        L"检查该文件夹的权限、只读属性、磁盘空间和安全软件的“受控文件夹访问”。程序文件夹不能"
        L"写入时，把程序移到 C:\\Program Files 下的新文件夹。");
  }
  // An unknown free space gives no verdict.
  if (folder.freeBytes && *folder.freeBytes < kNeededBytes) {
    outcome.Fault(folder.name + L"所在的磁盘几乎满了：只剩 " + Megabytes(*folder.freeBytes),
                  L"清理磁盘。");
  } else if (folder.freeBytes && *folder.freeBytes < kComfortableBytes) {
    outcome.Note(folder.name + L"所在的磁盘空间不多：剩 " + Megabytes(*folder.freeBytes),
                 L"清理磁盘。");
  }
}

std::wstring Minutes(const std::optional<std::uint32_t>& seconds) {
  if (!seconds) return L"未知";
  if (*seconds == 0) return L"从不";
  // Rounded up: half a minute must not read as 0.
  return std::to_wstring((*seconds + 59) / 60) + L" 分钟后";
}

std::wstring LidAction(const std::optional<std::uint32_t>& action) {
  // In the order of Windows' values, from 0.
  constexpr const wchar_t* kActions[] = {L"不做任何事", L"睡眠", L"休眠", L"关机"};
  return action && *action < std::size(kActions) ? kActions[*action] : L"未知";
}

std::wstring Text(const PowerSetting& setting,
                  std::wstring (*words)(const std::optional<std::uint32_t>&), bool hasBattery) {
  std::wstring text = L"接电源 " + words(setting.onMains);
  if (hasBattery) text += L"，用电池 " + words(setting.onBattery);
  return text;
}

std::wstring Level(const std::optional<std::uint32_t>& value) {
  return value ? std::to_wstring(*value) : std::wstring(L"未知");
}

bool IsSet(const std::optional<std::uint32_t>& value) {
  return value.value_or(0) != 0;
}

}  // namespace

Outcome JudgeProgram(const ProgramFacts& facts) {
  Outcome outcome;
  outcome.Line(L"版本：" + facts.version);
  outcome.Line(L"文件：" + facts.path + L"，" + std::to_wstring(facts.sizeBytes) + L" 字节");
  outcome.Line(L"SHA-256：" + text::FromUtf8(facts.sha256));
  // The sum is computed over the whole file, so without it nothing could be read.
  if (facts.sha256.empty()) {
    outcome.Fault(L"读不出程序自己的文件", L"检查安全软件，或重新下载本程序。");
  }
  // A build without a pinned signer does not check signatures, so there is nothing to compare.
  if (facts.signerPin.empty()) {
    outcome.Line(L"更新签名：这个版本没有指定签名者，更新不核对签名");
    return outcome;
  }
  outcome.Line(L"更新签名：只接受此密钥签名的更新，SHA-256 " + text::FromUtf8(facts.signerPin));
  // An accepted signature of another signer is a fault, too: the key decides, not Windows' trust.
  if (facts.signerKeySha256 == facts.signerPin) {
    outcome.Line(L"本程序的文件由同一密钥签名");
  } else {
    outcome.Fault(L"本程序的文件没有由指定的密钥签名，或签名无效（" + HexCode(facts.trustError) +
                      L"）：文件可能被改动过",
                  L"从服务管理员处重新取得本程序，并比较 SHA-256。");
  }
  return outcome;
}

Outcome JudgeSystem(const SystemFacts& facts) {
  Outcome outcome;
  outcome.Line(L"Windows " + std::to_wstring(facts.major) + L"." + std::to_wstring(facts.minor) +
               L"，内部版本 " + std::to_wstring(facts.build));
  outcome.Line(facts.isArm64 ? L"处理器：ARM64" : L"处理器：x64");
  if (facts.dpi != 0) {
    // Rounded: 96 dots per inch are 100 %.
    outcome.Line(L"显示缩放：" + std::to_wstring((facts.dpi * 100 + 48) / 96) + L" %");
  }
  if (facts.build == 0) outcome.Note(L"系统没有说出它的版本");
  // An unknown version is only a note: it would be wrong to send the engineer to another computer.
  if (facts.build != 0 && facts.major < kOldestMajor) {
    outcome.Fault(L"Windows 版本太旧：需要 Windows 10 或更新", L"换一台 Windows 10 或 11 的电脑。");
  }
  if (facts.isArm64) {
    outcome.Fault(L"ARM64 处理器的 Windows 没有可用的网络驱动，软件隧道无法启动",
                  L"改用 x64 电脑；远程桌面不受影响。");
  }
  return outcome;
}

Outcome JudgeRights(const RightsFacts& facts) {
  Outcome outcome;
  if (!facts.isElevated) {
    // Unknown is not "no": the client may still work.
    outcome.Note(L"系统没有说出本程序的权限");
  } else if (*facts.isElevated) {
    outcome.Line(L"以管理员权限运行");
  } else {
    outcome.Fault(L"没有管理员权限，驱动无法加载", L"右键点本程序，选“以管理员身份运行”。");
  }
  if (facts.isOtherUsersDesktop) {
    outcome.Note(L"本程序以另一账户的权限运行：设置和档案存在那个账户下，代理旁路为两个用户维护");
  } else {
    outcome.Line(L"与桌面用户是同一账户");
  }
  return outcome;
}

Outcome JudgeFolders(const std::vector<FolderFacts>& folders) {
  Outcome outcome;
  for (const FolderFacts& folder : folders) JudgeFolder(folder, outcome);
  return outcome;
}

Outcome JudgePower(const PowerFacts& facts) {
  Outcome outcome;
  if (facts.error != 0) {
    // No fault: power settings do not keep the program from connecting.
    outcome.Note(L"系统没有说出电源设置：错误 " + std::to_wstring(facts.error));
    return outcome;
  }
  outcome.Line(L"睡眠：" + Text(facts.sleepSeconds, Minutes, facts.hasBattery));
  outcome.Line(L"合上盖子：" + Text(facts.lidAction, LidAction, facts.hasBattery));
  outcome.Line(L"USB 选择性暂停（1 为开）：" + Text(facts.usbSuspend, Level, facts.hasBattery));
  outcome.Line(L"Wi-Fi 节能（0 为关，3 为最省电）：" +
               Text(facts.wifiSaving, Level, facts.hasBattery));
  outcome.Line(facts.hasModernStandby ? L"新式待机：有" : L"新式待机：没有");
  // Without a battery its settings exist but never apply.
  const bool sleepsOnBattery = facts.hasBattery && IsSet(facts.sleepSeconds.onBattery);
  if (IsSet(facts.sleepSeconds.onMains) || sleepsOnBattery) {
    outcome.Note(L"没人操作时电脑会睡眠（" + Text(facts.sleepSeconds, Minutes, facts.hasBattery) +
                     L"），远程连接随之中断，唤醒后自动恢复",
                 L"长时间下载程序或监控时，在系统的电源设置里把睡眠改为“从不”。");
  }
  if (facts.hasBattery && (IsSet(facts.lidAction.onMains) || IsSet(facts.lidAction.onBattery))) {
    outcome.Note(
        L"合上盖子会中断连接（" + Text(facts.lidAction, LidAction, facts.hasBattery) + L"）",
        L"连接期间不要合上盖子。");
  }
  if (facts.hasModernStandby) {
    outcome.Note(L"这台电脑用新式待机：屏幕关闭一段时间后网络可能断开",
                 L"连接期间接上电源，不要按电源键关屏幕。");
  }
  return outcome;
}

}  // namespace checks
