#pragma once

#include <string>
#include <string_view>

#include "settings/json.h"

namespace service {

// The outer form of every reply of the central service. The HTTP status is no part of it: a 400
// and a 200 with the same body read alike.
struct ApiEnvelope {
  bool success = false;      // true only for the JSON boolean true
  std::wstring code;         // machine-readable; empty when missing or no string
  std::wstring message;      // for people; empty when missing or no string
  settings::JsonValue data;  // a copy of the payload of any kind; null when missing
};

// Throws std::runtime_error ("Invalid JSON.", "Invalid JSON string.") for malformed JSON; a body
// that does not start like JSON (empty, HTML) is a failed reply without code and message. One
// byte-order mark in front and any text behind the first JSON value are ignored. Pure; any thread.
ApiEnvelope ParseApiEnvelope(std::wstring_view body);

// True for the five codes, in any letter case, with which the service refuses a device or engineer
// for the time being; the connection request is then retried. Pure; any thread.
bool IsServiceRefusalCode(std::wstring_view code);

}  // namespace service
