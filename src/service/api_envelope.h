#pragma once

#include <string>
#include <string_view>

#include "settings/json.h"

namespace service {

// The outer form of every reply of the central service.
struct ApiEnvelope {
  bool success = false;
  std::wstring code;
  std::wstring message;
  settings::JsonValue data;
};

// Throws std::runtime_error ("Invalid JSON.", "Invalid JSON string.") for malformed JSON; a body
// that does not start like JSON (empty, HTML) is a failed reply without code and message.
ApiEnvelope ParseApiEnvelope(std::wstring_view body);

// True for the five codes, in any letter case, with which the service refuses a device or engineer
// for the time being; the connection request is then retried.
bool IsServiceRefusalCode(std::wstring_view code);

}  // namespace service
