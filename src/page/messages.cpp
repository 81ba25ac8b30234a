#include "page/messages.h"

#include <algorithm>
#include <stdexcept>
#include <vector>

#include "settings/json.h"
#include "text/strings.h"
#include "text/utf8.h"

namespace page {
namespace {

using settings::QuoteJsonString;

std::wstring_view Boolean(bool value) noexcept {
  return value ? L"true" : L"false";
}

// Joins `items`, each written by `write`, with commas.
template <typename Items, typename Write>
std::wstring JoinItems(const Items& items, Write write) {
  std::wstring joined;
  for (const auto& item : items) {
    if (!joined.empty()) joined += L',';
    joined += write(item);
  }
  return joined;
}

std::wstring WriteCard(const Card& card) {
  std::wstring json = L"{\"k\":" + QuoteJsonString(card.key);
  json.append(L",\"v\":").append(QuoteJsonString(card.value));
  return json.append(L",\"cls\":\"").append(ClassName(card.statusClass)).append(L"\"}");
}

std::wstring WriteSidePanel(const settings::Settings& settings, const TunnelStatus& tunnel) {
  const SidePanel side = DescribeTunnel(settings, tunnel);
  std::wstring json = L"{\"logo\":\"Velmarine.Client\",\"sub\":\"工程师远程调试\",\"on\":";
  // The members "err" and "foot" belong to the message's form; this program never fills them.
  json.append(Boolean(side.online)).append(L",\"err\":false,\"state\":");
  json.append(QuoteJsonString(side.state)).append(L",\"detail\":");
  json.append(QuoteJsonString(side.detail)).append(L",\"foot\":\"\",\"cards\":[");
  return json.append(JoinItems(StatusCards(settings), WriteCard)).append(L"]}");
}

std::wstring TwoDigits(int number) {
  // Always two units, even for a number out of range.
  return {static_cast<wchar_t>(L'0' + number / 10 % 10), static_cast<wchar_t>(L'0' + number % 10)};
}

std::wstring WriteTime(const TimeOfDay& time) {
  std::wstring text = L"\"" + TwoDigits(time.hours);
  text.append(L":").append(TwoDigits(time.minutes));
  return text.append(L":").append(TwoDigits(time.seconds)).append(L"\"");
}

std::wstring WriteClass(std::wstring_view text) {
  std::wstring json = L"\"";
  return json.append(ClassName(ClassifyStatus(text))).append(L"\"");
}

std::wstring WriteLogLine(const LogLine& line) {
  // An array without names: up to 500 of these lines are sent at once.
  return L"[" + WriteTime(line.time) + L"," + QuoteJsonString(line.text) + L"," +
         WriteClass(line.text) + L"]";
}

// Writes member `key` of `changed`; empty when it is not a string.
std::wstring WriteChangedText(const settings::JsonValue& changed, const std::wstring& key) {
  const std::wstring* text = settings::FindJsonString(changed, key);
  return text == nullptr ? std::wstring() : L"\"" + key + L"\":" + QuoteJsonString(*text);
}

std::wstring TakeText(const settings::JsonValue& form, std::wstring_view key) {
  return text::Trim(settings::JsonStringOrEmpty(form, key));
}

std::optional<settings::JsonValue> ParseDocument(std::wstring_view json) {
  try {
    return settings::ReadJsonDocument(json);
  } catch (const std::runtime_error&) {
    return std::nullopt;  // any script in the page may post; other texts are ignored
  }
}

}  // namespace

std::optional<PageMessage> ParsePageMessage(std::wstring_view json) {
  const std::optional<settings::JsonValue> document = ParseDocument(json);
  if (!document) return std::nullopt;
  const std::wstring* name = settings::FindJsonString(*document, L"action");
  if (name == nullptr) return std::nullopt;

  PageMessage message{*name, std::nullopt};
  const settings::JsonValue* form = settings::FindJsonMember(*document, L"f");
  // An action without a form leaves the fields as they are.
  if (form != nullptr && form->AsObject() != nullptr) message.form = *form;
  return message;
}

void TakeFields(const settings::JsonValue& form, settings::Settings& settings) {
  settings.deviceSecret = TakeText(form, L"secret");
  settings.targetNetwork = TakeText(form, L"target");
  // The page shows its own word for every network; the settings and the service have "ALL".
  if (settings.targetNetwork.empty() || settings.targetNetwork == kAutomaticTarget) {
    settings.targetNetwork = settings::kAllNetworks;
  }
  settings.testIp = TakeText(form, L"testip");
  settings.profileName = TakeText(form, L"profileName");
  const settings::JsonValue* discovery = settings::FindJsonMember(form, L"discovery");
  const bool* enabled = discovery == nullptr ? nullptr : discovery->AsBoolean();
  settings.discoveryModeEnabled = enabled != nullptr && *enabled;
}

settings::JsonValue FormOf(const settings::Settings& settings) {
  using settings::JsonValue;
  return JsonValue(settings::JsonObject{
      {L"secret", JsonValue(settings.deviceSecret)},
      {L"target", JsonValue(ShownTarget(settings.targetNetwork))},
      {L"testip", JsonValue(settings.testIp)},
      {L"profileName", JsonValue(settings.profileName)},
      // The list of profiles has no selection of its own in the settings.
      {L"profileSel", JsonValue(settings.profileName)},
      {L"discovery", JsonValue(settings.discoveryModeEnabled)},
  });
}

std::wstring BuildStateMessage(const settings::Settings& settings, const TunnelStatus& tunnel,
                               std::wstring_view statusLine) {
  std::wstring json = L"{\"t\":\"state\",\"role\":\"client\",\"side\":";
  json.append(WriteSidePanel(settings, tunnel)).append(L",\"statusline\":");
  return json.append(QuoteJsonString(statusLine)).append(L"}");
}

std::wstring BuildApplyMessage(const settings::Settings& settings) {
  const auto quoteName = [](const settings::SiteProfile& profile) {
    return QuoteJsonString(profile.name);
  };
  std::wstring json = L"{\"t\":\"apply\",\"role\":\"client\",\"fields\":{\"secret\":";
  json.append(QuoteJsonString(settings.deviceSecret)).append(L",\"testip\":");
  json.append(QuoteJsonString(settings.testIp)).append(L",\"profileName\":");
  json.append(QuoteJsonString(settings.profileName)).append(L",\"targets\":[");
  json.append(JoinItems(TargetList(settings), QuoteJsonString)).append(L"],\"target\":");
  json.append(QuoteJsonString(ShownTarget(settings.targetNetwork))).append(L",\"discovery\":");
  json.append(Boolean(settings.discoveryModeEnabled)).append(L",\"profiles\":[");
  json.append(JoinItems(settings.siteProfiles, quoteName)).append(L"],\"profileSel\":");
  return json.append(QuoteJsonString(settings.profileName)).append(L"}}");
}

std::wstring BuildLogMessage(const TimeOfDay& time, std::wstring_view text) {
  std::wstring json = L"{\"t\":\"log\",\"ts\":" + WriteTime(time);
  json.append(L",\"msg\":").append(QuoteJsonString(text));
  return json.append(L",\"cls\":").append(WriteClass(text)).append(L"}");
}

std::wstring BuildLogsMessage(const std::deque<LogLine>& lines) {
  std::wstring json = L"{\"t\":\"logs\",\"lines\":[";
  return json.append(JoinItems(lines, WriteLogLine)).append(L"]}");
}

std::wstring BuildFormMessage(const settings::JsonValue& changed) {
  std::vector<std::wstring> members;
  for (const wchar_t* key : {L"secret", L"target", L"testip", L"profileName"}) {
    // A field that the engineer has not changed must not count as edited.
    std::wstring member = WriteChangedText(changed, key);
    if (!member.empty()) members.push_back(std::move(member));
  }
  const settings::JsonValue* discovery = settings::FindJsonMember(changed, L"discovery");
  const bool* enabled = discovery == nullptr ? nullptr : discovery->AsBoolean();
  if (enabled != nullptr) members.push_back(L"\"discovery\":" + std::wstring(Boolean(*enabled)));
  std::wstring json = L"{\"t\":\"form\",\"fields\":{";
  return json.append(text::Join(members, L",")).append(L"}}");
}

std::wstring WithoutControlCharacters(std::wstring_view json) {
  // UTF-8 cannot hold lone surrogates, so this turns them into U+FFFD.
  std::wstring clean = text::FromUtf8(text::ToUtf8(json));
  // Quoting escapes only some of them; the others would reach the page as they are.
  std::ranges::replace_if(
      clean, [](wchar_t unit) { return unit < L' '; }, L'\xFFFD');
  return clean;
}

}  // namespace page
