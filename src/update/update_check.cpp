#include "update/update_check.h"

#include "service/api_envelope.h"
#include "settings/server_address.h"
#include "text/strings.h"
#include "update/compare_versions.h"

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

bool IsTrue(const settings::JsonValue& data, std::wstring_view key) {
  const settings::JsonValue* member = settings::FindJsonMember(data, key);
  const bool* boolean = member == nullptr ? nullptr : member->AsBoolean();
  return boolean != nullptr && *boolean;
}

std::wstring Install(const std::wstring& url, const std::wstring& version,
                     const CheckPorts& ports) {
  if (ports.downloadTarget.empty() || !ports.downloadFile(url, ports.downloadTarget)) {
    return kDownloadFailed + version;
  }
  if (ports.closing.stop_requested()) {
    ports.deleteFile(ports.downloadTarget);
    return {};
  }
  if (!ports.startUpdater(ports.downloadTarget)) {
    ports.deleteFile(ports.downloadTarget);
    return kUpdaterNotStarted + version;
  }
  ports.endProcess();
  return {};
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

std::wstring CheckForUpdate(const settings::Settings& settings, const CheckPorts& ports) {
  const std::wstring& current = ports.currentVersion;
  const std::wstring question =
      settings::NormaliseServerUrl(settings.serverUrl) + kPath + text::PercentEncode(current);
  const service::ApiEnvelope envelope =
      service::ParseApiEnvelope(ports.sendJsonRequest(L"GET", question, {}).body);
  if (!envelope.success) return kRefused + envelope.message;

  const UpdateOffer offer = ReadUpdateOffer(envelope.data);
  if (!offer.isAvailable) return kUpToDate + current;
  const std::wstring url = settings::AbsoluteUrl(offer.downloadUrl, settings.serverUrl);
  if (url.empty() || offer.version.empty() || CompareVersions(offer.version, current) <= 0) {
    return kUselessOffer;
  }
  if (!offer.isForced) return kOffered + offer.version + kOfferedTo + current + kNotForced;
  return Install(url, offer.version, ports);
}

}  // namespace update
