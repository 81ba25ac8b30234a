#include "update/update_check.h"

#include "service/api_messages.h"
#include "settings/server_address.h"
#include "text/strings.h"
#include "update/apply_update.h"
#include "update/versions.h"

namespace update {
namespace {

constexpr wchar_t kPath[] = L"/api/updates/client?currentVersion=";
constexpr wchar_t kRefused[] = L"自动更新检查失败：";
constexpr wchar_t kUpToDate[] = L"当前已是最新版本：";
constexpr wchar_t kUselessOffer[] = L"自动更新信息无效。";
constexpr wchar_t kOffered[] = L"发现新版本 ";
constexpr wchar_t kOfferedTo[] = L"，当前版本 ";
constexpr wchar_t kNotForced[] = L"。后台未设置强制更新，本次暂不自动覆盖。";
constexpr wchar_t kDownloadFailed[] = L"强制更新下载失败：";
constexpr wchar_t kUpdaterNotStarted[] = L"强制更新启动替换进程失败：";
constexpr wchar_t kNotInstalled[] = L"强制更新未安装 ";
constexpr wchar_t kCannotInstall[] = L"强制更新无法安装 ";
constexpr wchar_t kNotWritable[] = L"：本程序的文件不能被替换（错误码 ";
constexpr wchar_t kMoveProgram[] =
    L"）。请把本程序移到可以写入的文件夹（例如 C:\\Program Files "
    L"下的新文件夹）后重新运行；现在可继续使用当前版本。";
constexpr wchar_t kNoRoom[] = L"：本程序所在的磁盘空间不足（错误码 ";
constexpr wchar_t kMakeRoom[] = L"）。请清理磁盘后重新运行；现在可继续使用当前版本。";
constexpr wchar_t kNotKept[] =
    L"：无法在用户数据文件夹中写入更新记录。请检查磁盘空间和文件夹权限；现在可继续使用当前版本。";
constexpr wchar_t kTriedBefore[] = L"强制更新 ";
constexpr wchar_t kTriedBeforeBut[] = L" 在一天内已经安装过一次，但本程序的版本仍是 ";
constexpr wchar_t kTriedBeforeHelp[] =
    L"，今天不再重试。请把这一行告诉服务管理员；现在可继续使用当前版本。";

bool IsTrue(const settings::JsonValue& data, std::wstring_view key) {
  const settings::JsonValue* member = settings::FindJsonMember(data, key);
  const bool* boolean = member == nullptr ? nullptr : member->AsBoolean();
  return boolean != nullptr && *boolean;
}

// Either of Windows' codes for a full disk.
bool IsDiskFull(std::uint32_t errorCode) {
  constexpr std::uint32_t kHandleDiskFull = 39;
  constexpr std::uint32_t kDiskFull = 112;
  return errorCode == kHandleDiskFull || errorCode == kDiskFull;
}

std::wstring NotReplaceable(const std::wstring& version, std::uint32_t errorCode) {
  const wchar_t* const reason = IsDiskFull(errorCode) ? kNoRoom : kNotWritable;
  const wchar_t* const remedy = IsDiskFull(errorCode) ? kMakeRoom : kMoveProgram;
  return kCannotInstall + version + reason + std::to_wstring(errorCode) + remedy;
}

// Why the program must not end for the file at `target`, as a line for the log; empty when it may.
std::wstring WhyNotInstalled(const std::wstring& target, const std::wstring& version,
                             UpdateDeps& deps) {
  // Once more, now that the size is known.
  const platform::SystemResult replaceable = deps.ProbeReplacement(target);
  if (!replaceable.succeeded) return NotReplaceable(version, replaceable.errorCode);
  const std::wstring distrust = deps.WhyNotTrusted(target, nullptr);
  if (!distrust.empty()) return kNotInstalled + version + L"：" + distrust;
  return {};
}

std::wstring InstallDownload(const std::wstring& version, UpdateDeps& deps) {
  const std::wstring& target = deps.downloadTarget;
  std::wstring why = WhyNotInstalled(target, version, deps);
  // A closing program must not be replaced: the replacement process would start it again.
  if (!why.empty() || deps.closing.stop_requested()) {
    deps.Remove(target);
    return why;
  }
  // Recorded before the replacement process starts, so that an update that fails is retried
  // tomorrow and not at every start.
  if (!deps.KeepTry({version, deps.NowSeconds()})) {
    deps.Remove(target);
    return kCannotInstall + version + kNotKept;
  }
  if (!StartUpdater(target, deps)) {
    deps.Remove(target);
    return kUpdaterNotStarted + version;
  }
  deps.EndProcess();
  return {};  // reached with a fake only
}

std::wstring Install(const std::wstring& url, const std::wstring& version, UpdateDeps& deps) {
  if (WasTriedWithinADay(deps.LastTry(), version, deps.NowSeconds())) {
    return kTriedBefore + version + kTriedBeforeBut + deps.currentVersion + kTriedBeforeHelp;
  }
  // Probed before the download as well: on a read-only disk it would be repeated at every start.
  const platform::SystemResult replaceable = deps.ProbeReplacement({});
  if (!replaceable.succeeded) return NotReplaceable(version, replaceable.errorCode);
  if (deps.downloadTarget.empty() || !deps.Download(url, deps.downloadTarget)) {
    return kDownloadFailed + version;
  }
  return InstallDownload(version, deps);
}

}  // namespace

UpdateOffer ReadUpdateOffer(const settings::JsonValue& data) {
  UpdateOffer offer;
  offer.isAvailable = IsTrue(data, L"updateAvailable");
  offer.version = settings::JsonStringOrEmpty(data, L"version");
  offer.downloadUrl = settings::JsonStringOrEmpty(data, L"downloadUrl");
  offer.isForced = IsTrue(data, L"force");
  return offer;
}

std::wstring UpdateQuestion(const std::wstring& serverUrl, const std::wstring& version) {
  return settings::NormaliseServerUrl(serverUrl) + kPath + text::PercentEncode(version);
}

std::wstring CheckForUpdate(const settings::Settings& settings, UpdateDeps& deps) {
  const std::wstring& current = deps.currentVersion;
  const std::wstring question = UpdateQuestion(settings.serverUrl, current);
  const service::ApiEnvelope envelope =
      service::ParseApiEnvelope(deps.SendJsonRequest(L"GET", question, {}).body);
  if (!envelope.success) return kRefused + envelope.message;

  const UpdateOffer offer = ReadUpdateOffer(envelope.data);
  if (!offer.isAvailable) return kUpToDate + current;
  const std::wstring url = settings::AbsoluteUrl(offer.downloadUrl, settings.serverUrl);
  // Compared here too: the service might offer the version that is running.
  if (url.empty() || offer.version.empty() || CompareVersions(offer.version, current) <= 0) {
    return kUselessOffer;
  }
  if (!offer.isForced) return kOffered + offer.version + kOfferedTo + current + kNotForced;
  return Install(url, offer.version, deps);
}

}  // namespace update
