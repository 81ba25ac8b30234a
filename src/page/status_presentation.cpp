#include "page/status_presentation.h"

#include <algorithm>
#include <iterator>
#include <span>

#include "text/page_texts.h"
#include "text/strings.h"

namespace page {
namespace {

// The colours follow from the words of the log (docs/decisions.md, "The page").
constexpr std::wstring_view kErrorStart = L"Error";
constexpr std::wstring_view kErrorWords[] = {L"失败", L"错误", L"异常", L"未接受"};
constexpr std::wstring_view kWarningWords[] = {L"警告", L"忽略", L"重试", L"待"};
constexpr std::wstring_view kSuccessWords[] = {L"成功",   L"已连接", L"就绪",   L"在线",  L"已生效",
                                               L"已获取", L"已保存", L"已复制", L"已刷新"};

bool ContainsAny(std::wstring_view text, std::span<const std::wstring_view> words) {
  return std::any_of(words.begin(), words.end(), [text](std::wstring_view word) {
    return text.find(word) != std::wstring_view::npos;
  });
}

// Grey with `placeholder` while there is no value.
Card ValueCard(const wchar_t* key, const std::wstring& value, const wchar_t* placeholder,
               StatusClass whenSet) {
  if (value.empty()) return {key, placeholder, StatusClass::Off};
  return {key, value, whenSet};
}

bool IsTargetSeparator(wchar_t unit) {
  return unit == L',' || unit == L';' || text::IsSpace(unit);
}

}  // namespace

std::wstring_view ClassName(StatusClass statusClass) noexcept {
  switch (statusClass) {
    case StatusClass::Ok:
      return L"ok";
    case StatusClass::Warning:
      return L"wn";
    case StatusClass::Error:
      return L"er";
    case StatusClass::Off:
      return L"off";
    case StatusClass::Plain:
      // No class: the page's ordinary colour.
      break;
  }
  return L"";
}

StatusClass ClassifyStatus(std::wstring_view text) {
  if (text.starts_with(kErrorStart)) return StatusClass::Error;
  // Failure first: a line may name a failure and a success.
  if (ContainsAny(text, kErrorWords)) return StatusClass::Error;
  if (ContainsAny(text, kWarningWords)) return StatusClass::Warning;
  if (ContainsAny(text, kSuccessWords)) return StatusClass::Ok;
  return StatusClass::Plain;
}

std::wstring AccessText(const settings::Settings& settings) {
  // The best known form first: the mappings show the addresses that the engineer has to enter.
  if (!settings.routeMappingsText.empty()) return settings.routeMappingsText;
  if (!settings.accessRoutesText.empty()) return settings.accessRoutesText;
  return settings.routesText;
}

std::vector<Card> StatusCards(const settings::Settings& settings) {
  const bool discovery = settings.discoveryModeEnabled;
  return {
      ValueCard(L"设备", settings.deviceNumber, L"等待密钥", StatusClass::Plain),
      ValueCard(L"组网 IP", settings.assignedAddress, L"未连接", StatusClass::Ok),
      Card{L"运行库", L"软件隧道已就绪", StatusClass::Plain},
      ValueCard(L"NAT访问IP", AccessText(settings), L"未连接", StatusClass::Plain),
      Card{L"PLC发现模式", discovery ? L"PLC发现模式已开启" : L"已关闭",
           discovery ? StatusClass::Ok : StatusClass::Off},
  };
}

SidePanel DescribeTunnel(const settings::Settings& settings, const TunnelStatus& tunnel) {
  if (tunnel.running && tunnel.relayConnected) {
    std::wstring access = AccessText(settings);
    // A connection without routes in the settings still has its target.
    if (access.empty()) access = settings.targetNetwork;
    return {true, L"在线", L"访问网段 " + access};
  }
  return {false, L"未连接", tunnel.running ? text::kReconnecting : L"粘贴现场端密钥即可连接"};
}

std::vector<std::wstring> TargetList(const settings::Settings& settings) {
  // Without granted networks, the target is the only one known.
  const std::wstring& source =
      settings.routesText.empty() ? settings.targetNetwork : settings.routesText;
  std::vector<std::wstring> targets{std::wstring(kAutomaticTarget)};
  for (auto at = source.begin(); at != source.end();) {
    const auto end = std::find_if(at, source.end(), IsTargetSeparator);
    std::wstring entry(at, end);
    // "ALL" is already the automatic choice at the front.
    if (!entry.empty() && entry != settings::kAllNetworks) targets.push_back(std::move(entry));
    at = end == source.end() ? end : std::next(end);
  }
  return targets;
}

std::wstring ShownTarget(std::wstring_view targetNetwork) {
  if (targetNetwork.empty() || targetNetwork == settings::kAllNetworks)
    return std::wstring(kAutomaticTarget);
  return std::wstring(targetNetwork);
}

}  // namespace page
