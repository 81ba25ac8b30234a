#pragma once

#include <deque>
#include <string>
#include <string_view>

#include "page/status_presentation.h"
#include "settings/json.h"
#include "settings/settings.h"

// The JSON texts that the program sends to its page: no blanks, members in a fixed order. Only
// tab, CR, LF, quote and backslash are escaped in them. Pure; any thread.
namespace page {

// The side panel and the status line.
std::wstring BuildStateMessage(const settings::Settings& settings, const TunnelStatus& tunnel,
                               std::wstring_view statusLine);

// The form's values. The page keeps what the engineer has typed until the values agree with it, but
// shows all others, so this goes out only where the program itself has changed them.
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

// All lines that a page is to show, in the place of those that it shows: for a page that stands in
// for another one.
std::wstring BuildLogsMessage(const std::deque<LogLine>& lines);

// The fields that the engineer has changed and no action has carried yet, for a page that stands in
// for another one: of the form's five fields those that `changed`, an object, has. The page treats
// them as typed again.
std::wstring BuildFormMessage(const settings::JsonValue& changed);

// A message above in a form that the page takes whatever its texts hold: each control character
// (below U+0020; there are none between the members) and each lone surrogate is U+FFFD instead.
std::wstring WithoutControlCharacters(std::wstring_view json);

}  // namespace page
