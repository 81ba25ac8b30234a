#include "checks/computer_checks.h"

#include <array>
#include <cwchar>

#include "platform/system_error.h"
#include "text/utf8.h"

namespace checks {
namespace {

constexpr std::uint32_t kOldestMajor = 10;
constexpr std::uint64_t kMegabyte = 1 << 20;
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
  if (folder.freeBytes && *folder.freeBytes < kNeededBytes) {
    outcome.Fault(folder.name + L"所在的磁盘几乎满了：只剩 " + Megabytes(*folder.freeBytes),
                  L"清理磁盘。");
  } else if (folder.freeBytes && *folder.freeBytes < kComfortableBytes) {
    outcome.Note(folder.name + L"所在的磁盘空间不多：剩 " + Megabytes(*folder.freeBytes),
                 L"清理磁盘。");
  }
}

}  // namespace

Outcome JudgeProgram(const ProgramFacts& facts) {
  Outcome outcome;
  outcome.Line(L"版本：" + facts.version);
  outcome.Line(L"文件：" + facts.path + L"，" + std::to_wstring(facts.sizeBytes) + L" 字节");
  outcome.Line(L"SHA-256：" + text::FromUtf8(facts.sha256));
  if (facts.sha256.empty()) {
    outcome.Fault(L"读不出程序自己的文件", L"检查安全软件，或重新下载本程序。");
  }
  if (facts.signerPin.empty()) {
    outcome.Line(L"更新签名：这个版本没有指定签名者，更新不核对签名");
    return outcome;
  }
  outcome.Line(L"更新签名：只接受此密钥签名的更新，SHA-256 " + text::FromUtf8(facts.signerPin));
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
    outcome.Line(L"显示缩放：" + std::to_wstring((facts.dpi * 100 + 48) / 96) + L" %");
  }
  if (facts.build == 0) outcome.Note(L"系统没有说出它的版本");
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

}  // namespace checks
