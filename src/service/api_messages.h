#pragma once

#include <exception>
#include <string>
#include <string_view>
#include <vector>

#include "settings/json.h"
#include "settings/settings.h"

// The messages exchanged with the central service, and the lines for failures. Pure; any thread.
namespace service {

// The envelope of every reply. The HTTP status does not matter: a 400 and a 200 with the same body
// are read alike.
struct ApiEnvelope {
  bool success = false;      // true only for the JSON boolean true
  std::wstring code;         // machine-readable; empty when missing or not a string
  std::wstring message;      // for people; empty when missing or not a string
  settings::JsonValue data;  // a copy of the payload, of any kind; null when missing
};

// Throws std::runtime_error ("Invalid JSON.", "Invalid JSON string.") for malformed JSON. A body
// that does not start like JSON (empty, HTML) gives a failed reply without code and message. A
// leading byte-order mark and any text after the first JSON value are ignored.
ApiEnvelope ParseApiEnvelope(std::wstring_view body);

// True for the five codes, in any letter case, with which the service temporarily refuses a device
// or engineer. The connection request is then retried.
bool IsServiceRefusalCode(std::wstring_view code);

// The fixed reasons that the client reports for the end of a connection.
inline constexpr std::wstring_view kReasonEndedHere = L"本地客户端断开连接";
inline constexpr std::wstring_view kReasonTunnelFailed = L"本地隧道启动失败";

// Both normalise `serverUrl`. The connection id is inserted into the path without encoding.
std::wstring AuthorizationUrl(std::wstring_view serverUrl);
std::wstring DisconnectUrl(std::wstring_view serverUrl, std::wstring_view connectionId);

// JSON bodies with members in a fixed order and no blanks.
std::wstring AuthorizationBody(const settings::Settings& settings);
std::wstring DisconnectBody(std::wstring_view engineerId, std::wstring_view reason);

// The contents of an accepted authorisation.
struct ConnectionGrant {
  std::wstring connectionId;
  std::wstring assignedAddress;      // the engineer's tunnel address
  std::vector<std::wstring> routes;  // at least one, in the service's order
};

// Reads the reply's `data` and skips members of `routes` that are not strings. Throws
// std::runtime_error with a fixed text when one of the three is missing or empty.
ConnectionGrant ReadConnectionGrant(const settings::JsonValue& data);

// The message of a caught exception; "Unknown error." for anything but a std::exception.
std::wstring FailureMessage(const std::exception_ptr& failure);

// The result text of a job that threw: "Error: " and the message, or "Unknown error.".
std::wstring JobFailureLine(const std::exception_ptr& failure);

}  // namespace service
