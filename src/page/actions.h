#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "settings/json.h"
#include "settings/settings.h"

// What the page sends: one action with a snapshot of its form. Pure; any thread.
namespace page {

struct PageMessage {
  std::wstring action;                      // as sent; whether it is known is the receiver's affair
  std::optional<settings::JsonValue> form;  // the member "f", only when it is an object
};

// Nothing for a text that is no JSON or has no string member "action".
std::optional<PageMessage> ParsePageMessage(std::wstring_view json);

// Takes the form's five fields into `settings`, texts trimmed. A missing member, or one of the
// wrong kind, clears its field. An empty or automatic target becomes "ALL".
void TakeFields(const settings::JsonValue& form, settings::Settings& settings);

// The form as it shows `settings`: taken into them, it changes nothing that a form has put there.
settings::JsonValue FormOf(const settings::Settings& settings);

}  // namespace page
