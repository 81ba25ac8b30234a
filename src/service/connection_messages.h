#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "settings/json.h"
#include "settings/settings.h"

// What the connection jobs and the central service say to each other. Pure; any thread.
namespace service {

// The fixed reasons with which the client reports the end of a connection.
inline constexpr std::wstring_view kReasonEndedHere = L"本地客户端断开连接";
inline constexpr std::wstring_view kReasonTunnelFailed = L"本地隧道启动失败";

// `serverUrl` is normalised first, as everywhere.
std::wstring AuthorizationUrl(std::wstring_view serverUrl);
// The connection id goes into the path as it is stored, without any encoding.
std::wstring DisconnectUrl(std::wstring_view serverUrl, std::wstring_view connectionId);

// The JSON bodies: members in a fixed order, no blanks.
std::wstring AuthorizationBody(const settings::Settings& settings);
std::wstring DisconnectBody(std::wstring_view engineerId, std::wstring_view reason);

// What an accepted authorisation grants.
struct ConnectionGrant {
  std::wstring connectionId;
  std::wstring assignedAddress;      // the engineer's tunnel address
  std::vector<std::wstring> routes;  // at least one, in the service's order
};

// Reads the reply's `data`; members of `routes` that are no strings are skipped. Throws
// std::runtime_error with a fixed text when one of the three is missing or empty.
ConnectionGrant ReadConnectionGrant(const settings::JsonValue& data);

}  // namespace service
