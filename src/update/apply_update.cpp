#include "update/apply_update.h"

#include <chrono>

namespace update {
namespace {

using platform::SystemResult;

constexpr wchar_t kCopySuffix[] = L".updater.exe";
constexpr wchar_t kMode[] = L" --apply-update ";

constexpr std::chrono::milliseconds kLongestWait{60000};
// The system may release a program's file only some time after its process has ended.
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

int Restart(const std::wstring& destination, UpdateDeps& deps) {
  const SystemResult started = deps.Start(QuoteArgument(destination));
  if (started.succeeded) {
    deps.WriteLog(kRestarted);
    return kReplaced;
  }
  deps.WriteLog(kNotRestarted + std::to_wstring(started.errorCode));
  return ExitCode(started, kRestartFailed);
}

// Starts the old program again, which ended only for this update.
int Refuse(const std::wstring& why, const std::wstring& destination, UpdateDeps& deps) {
  deps.WriteLog(kDistrusted + why);
  deps.Start(QuoteArgument(destination));
  return kNotTrusted;
}

// Moves `fresh` to `destination`, which may be missing, and the old file to `backup` if possible.
SystemResult Place(const std::wstring& fresh, const std::wstring& destination,
                   const std::wstring& backup, UpdateDeps& deps) {
  deps.Remove(backup);
  const bool hadProgram = deps.IsFile(destination);
  // After a power cut between the two moves, the backup alone is a whole program.
  const SystemResult aside = deps.MoveOver(destination, backup);
  // Even if the old program is still there: the move then replaces it in one step.
  const SystemResult placed = deps.MoveOver(fresh, destination);
  if (placed.succeeded) return placed;
  // Only a backup made above: any other is older than the program it would replace.
  if (aside.succeeded) deps.MoveOver(backup, destination);
  // A program that cannot be renamed cannot be replaced either; the first code is the cause.
  return hadProgram && !aside.succeeded ? aside : placed;
}

SystemResult Swap(const std::string& program, const std::wstring& source,
                  const std::wstring& destination, UpdateDeps& deps) {
  const std::wstring backup = destination + kBackupSuffix;
  const std::wstring fresh = destination + kNewSuffix;
  // Written whole before the old program is touched: a full disk changes nothing.
  const SystemResult written = deps.WriteNew(fresh, program);
  if (!written.succeeded) return written;
  const SystemResult placed = Place(fresh, destination, backup, deps);
  if (!placed.succeeded) {
    deps.Remove(fresh);
    return placed;
  }
  deps.Remove(source);
  // With an error code the disk may not have the new program yet, and a power cut could lose it.
  // The next update removes the backup then.
  if (written.errorCode == 0) deps.Remove(backup);
  return placed;
}

}  // namespace

std::wstring QuoteArgument(std::wstring_view text) {
  std::wstring quoted = L"\"";
  for (const wchar_t unit : text) {
    if (unit == L'"') quoted += L'\\';
    quoted += unit;
  }
  return quoted += L'"';
}

std::wstring UpdaterCommandLine(std::wstring_view updater, std::uint32_t processId,
                                std::wstring_view downloadedPath, std::wstring_view programPath) {
  return QuoteArgument(updater) + kMode + QuoteArgument(std::to_wstring(processId)) + L" " +
         QuoteArgument(downloadedPath) + L" " + QuoteArgument(programPath);
}

bool StartUpdater(const std::wstring& downloadedPath, UpdateDeps& deps) {
  const std::wstring& self = deps.programPath;
  if (self.empty()) return false;
  const std::wstring copy = self + kCopySuffix;
  // May fail; then the copy of an earlier update, or the program itself, does the work.
  deps.CopyOver(self, copy);
  const std::wstring& updater = deps.IsFile(copy) ? copy : self;
  return deps.StartHidden(UpdaterCommandLine(updater, deps.processId, downloadedPath, self))
      .succeeded;
}

int ApplyUpdate(std::uint32_t parentPid, const std::wstring& source,
                const std::wstring& destination, UpdateDeps& deps) {
  deps.PrepareLogFiles();
  deps.WriteLog(kBegun + source + kBegunTo + destination + kBegunFor + std::to_wstring(parentPid));
  // Before the wait: without a download nothing is worth waiting for.
  if (source.empty() || !deps.IsFile(source)) {
    deps.WriteLog(kSourceMissing);
    return kNoSource;
  }
  // After the limit the swap is tried too: it fails if the program still runs and holds its file.
  deps.WaitForEnd(parentPid, kLongestWait);
  deps.Pause(kPause);

  platform::HeldFile held = deps.Hold(source);
  SystemResult swapped = held.result;
  if (swapped.succeeded) {
    // The running program checked the path; the file there may have been exchanged since.
    const std::wstring why = deps.WhyNotTrusted(source, &held);
    if (!why.empty()) return Refuse(why, destination, deps);
    // Released, because Swap() deletes the file. The checked bytes are in memory.
    held.handle.reset();
    swapped = Swap(held.bytes, source, destination, deps);
  }
  if (!swapped.succeeded) {
    deps.WriteLog(kNotCopied + std::to_wstring(swapped.errorCode));
    return ExitCode(swapped, kCopyFailed);
  }
  return Restart(destination, deps);
}

}  // namespace update
