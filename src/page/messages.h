#pragma once

#include <deque>
#include <optional>
#include <string>
#include <string_view>

#include "page/status_presentation.h"
#include "settings/json.h"
#include "settings/settings.h"

// The messages between program and page. Pure; any thread.
namespace page {

// ---- from the page: an action with a snapshot of the page's form

struct PageMessage {
  std::wstring action;                      // as sent, known or not
  std::optional<settings::JsonValue> form;  // the member "f", if it is an object
};

// Nothing for a text that is not JSON or has no string member "action".
std::optional<PageMessage> ParsePageMessage(std::wstring_view json);

// Copies the form's five fields into `settings`, texts trimmed. A missing member, or one of the
// wrong type, clears its field. An empty or automatic target becomes "ALL".
void TakeFields(const settings::JsonValue& form, settings::Settings& settings);

// The form for `settings`; TakeFields() of it changes nothing that came from a form.
settings::JsonValue FormOf(const settings::Settings& settings);

// ---- to the page: JSON without blanks, members in a fixed order, only tab, CR, LF, quote and
// backslash escaped

// The side panel and the status line.
std::wstring BuildStateMessage(const settings::Settings& settings, const TunnelStatus& tunnel,
                               std::wstring_view statusLine);

// The form's values. The page keeps the engineer's edits until the values agree with them, but
// shows all others, so this is sent only after the program itself has changed them.
std::wstring BuildApplyMessage(const settings::Settings& settings);

// Local time of day.
struct TimeOfDay {
  int hours = 0;
  int minutes = 0;
  int seconds = 0;
};

// One line for the live log, coloured by ClassifyStatus.
std::wstring BuildLogMessage(const TimeOfDay& time, std::wstring_view text);

// A line as it was logged.
struct LogLine {
  TimeOfDay time;
  std::wstring text;
};

// Replaces all lines that the page shows; for a page that replaces another one.
std::wstring BuildLogsMessage(const std::deque<LogLine>& lines);

// Fields that the engineer has changed since the last action: those of the form's five that
// `changed`, an object, has. A page that replaces another one treats them as edited.
std::wstring BuildFormMessage(const settings::JsonValue& changed);

// Makes any message above acceptable to the page: replaces each control character (below U+0020;
// there are none between members) and each lone surrogate by U+FFFD.
std::wstring WithoutControlCharacters(std::wstring_view json);

}  // namespace page
