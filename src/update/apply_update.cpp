#include "update/apply_update.h"

#include "update/quote_argument.h"

namespace update {
namespace {

using platform::SystemResult;

constexpr std::chrono::milliseconds kLongestWait{60000};
// Between the end of a process and the moment when the system lets its file go.
constexpr std::chrono::milliseconds kPause{800};
constexpr wchar_t kBackupSuffix[] = L".bak";
constexpr wchar_t kNewSuffix[] = L".new";

constexpr wchar_t kBegun[] = L"开始执行强制更新。src=";
constexpr wchar_t kBegunTo[] = L" dst=";
constexpr wchar_t kBegunFor[] = L" parent=";
constexpr wchar_t kSourceMissing[] = L"更新失败：下载文件不存在。";
constexpr wchar_t kNotCopied[] = L"更新失败：覆盖主程序失败，错误码 ";
constexpr wchar_t kDistrusted[] = L"更新失败：";
constexpr wchar_t kRestarted[] = L"更新成功，已重启主程序。";
constexpr wchar_t kNotRestarted[] = L"更新已覆盖，但重启失败，错误码 ";

int ExitCode(const SystemResult& failure, int withoutErrorCode) {
  return failure.errorCode == 0 ? withoutErrorCode : static_cast<int>(failure.errorCode);
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

// The old program has ended for an update that it would not have ended for.
int Refuse(const std::wstring& why, const std::wstring& destination, const ApplyPorts& ports) {
  ports.writeLog(kDistrusted + why);
  ports.start(QuoteArgument(destination));
  return kNotTrusted;
}

// Puts the file `fresh` into the place of `destination`, which may be missing, and leaves the old
// one at `backup` where it can.
SystemResult Place(const std::wstring& fresh, const std::wstring& destination,
                   const std::wstring& backup, const SwapFiles& files) {
  files.remove(backup);
  const bool hadProgram = files.isFile(destination);
  const SystemResult aside = files.moveOver(destination, backup);
  const SystemResult placed = files.moveOver(fresh, destination);
  if (placed.succeeded) return placed;
  if (aside.succeeded) files.moveOver(backup, destination);
  // A program that may not be renamed may not be replaced either, and the first code says why.
  return hadProgram && !aside.succeeded ? aside : placed;
}

SystemResult Swap(const std::string& program, const std::wstring& source,
                  const std::wstring& destination, const SwapFiles& files) {
  const std::wstring backup = destination + kBackupSuffix;
  const std::wstring fresh = destination + kNewSuffix;
  const SystemResult written = files.writeNew(fresh, program);
  if (!written.succeeded) return written;
  const SystemResult placed = Place(fresh, destination, backup, files);
  if (!placed.succeeded) {
    files.remove(fresh);
    return placed;
  }
  files.remove(source);
  // A program that the disk may not have yet could be lost with the power; the next update removes
  // the backup then.
  if (written.errorCode == 0) files.remove(backup);
  return placed;
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

  platform::HeldFile held = ports.files.hold(source);
  SystemResult swapped = held.result;
  if (swapped.succeeded) {
    const std::wstring why = ports.whyNotTrusted(held, source);
    if (!why.empty()) return Refuse(why, destination, ports);
    // From here on the bytes in memory count, and the file may be deleted.
    held.handle.reset();
    swapped = Swap(held.bytes, source, destination, ports.files);
  }
  if (!swapped.succeeded) {
    ports.writeLog(kNotCopied + std::to_wstring(swapped.errorCode));
    return ExitCode(swapped, kCopyFailed);
  }
  return Restart(destination, ports);
}

}  // namespace update
