#include "update/apply_update.h"

#include "update/quote_argument.h"

namespace update {
namespace {

using platform::SystemResult;

constexpr std::chrono::milliseconds kLongestWait{60000};
// Between the end of a process and the moment when the system lets its file go.
constexpr std::chrono::milliseconds kPause{800};
constexpr wchar_t kBackupSuffix[] = L".bak";

constexpr wchar_t kBegun[] = L"开始执行强制更新。src=";
constexpr wchar_t kBegunTo[] = L" dst=";
constexpr wchar_t kBegunFor[] = L" parent=";
constexpr wchar_t kSourceMissing[] = L"更新失败：下载文件不存在。";
constexpr wchar_t kNotCopied[] = L"更新失败：覆盖主程序失败，错误码 ";
constexpr wchar_t kRestarted[] = L"更新成功，已重启主程序。";
constexpr wchar_t kNotRestarted[] = L"更新已覆盖，但重启失败，错误码 ";

int ExitCode(const SystemResult& failure, int withoutErrorCode) {
  return failure.errorCode == 0 ? withoutErrorCode : static_cast<int>(failure.errorCode);
}

int GiveUp(const SystemResult& failure, const std::wstring& backup, const std::wstring& destination,
           const ApplyPorts& ports) {
  ports.writeLog(kNotCopied + std::to_wstring(failure.errorCode));
  if (ports.files.isFile(backup)) ports.files.moveOver(backup, destination);
  return ExitCode(failure, kCopyFailed);
}

int Restart(const std::wstring& destination, const ApplyPorts& ports) {
  const SystemResult started = ports.start(QuoteArgument(destination));
  if (started.succeeded) {
    ports.writeLog(kRestarted);
    return kReplaced;
  }
  ports.writeLog(kNotRestarted + std::to_wstring(started.errorCode));
  return ExitCode(started, kRestartFailed);
}

int Swap(const std::wstring& source, const std::wstring& destination, const ApplyPorts& ports) {
  const std::wstring backup = destination + kBackupSuffix;
  ports.files.remove(backup);
  ports.files.moveOver(destination, backup);
  const SystemResult copied = ports.files.copyOver(source, destination);
  if (!copied.succeeded) return GiveUp(copied, backup, destination, ports);
  ports.files.remove(source);
  // A copy that the disk may not have yet could be lost with the power; the next update removes
  // the backup then.
  if (copied.errorCode == 0) ports.files.remove(backup);
  return Restart(destination, ports);
}

}  // namespace

int ApplyUpdate(std::uint32_t parentPid, const std::wstring& source,
                const std::wstring& destination, const ApplyPorts& ports) {
  ports.prepareLogFiles();
  ports.writeLog(kBegun + source + kBegunTo + destination + kBegunFor + std::to_wstring(parentPid));
  if (source.empty() || !ports.files.isFile(source)) {
    ports.writeLog(kSourceMissing);
    return kNoSource;
  }
  ports.waitForEnd(parentPid, kLongestWait);
  ports.pause(kPause);
  return Swap(source, destination, ports);
}

}  // namespace update
