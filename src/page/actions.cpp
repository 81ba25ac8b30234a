#include "page/actions.h"

#include <stdexcept>

#include "page/status_presentation.h"
#include "text/strings.h"

namespace page {
namespace {

std::wstring TakeText(const settings::JsonValue& form, std::wstring_view key) {
  return text::Trim(settings::JsonStringOrEmpty(form, key));
}

std::optional<settings::JsonValue> ParseDocument(std::wstring_view json) {
  try {
    return settings::ReadJsonDocument(json);
  } catch (const std::runtime_error&) {
    return std::nullopt;  // whatever reaches the page may post; what is no message is ignored
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
  if (form != nullptr && form->AsObject() != nullptr) message.form = *form;
  return message;
}

void TakeFields(const settings::JsonValue& form, settings::Settings& settings) {
  settings.deviceSecret = TakeText(form, L"secret");
  settings.targetNetwork = TakeText(form, L"target");
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
      {L"profileSel", JsonValue(settings.profileName)},
      {L"discovery", JsonValue(settings.discoveryModeEnabled)},
  });
}

}  // namespace page
