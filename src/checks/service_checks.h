#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "checks/check.h"
#include "tunnel/relay/udp_datagram.h"

// The way to the central service, and its clock. None of these checks requests a connection.
namespace checks {

// Connects by TCP and closes again.
Outcome CheckServiceTcp(const std::wstring& serverUrl);

// Sends two hellos for a connection that does not exist to the relay's UDP port, waiting 1.5 s for
// each answer.
Outcome CheckServiceUdp(const std::wstring& serverUrl,
                        const tunnel::DatagramSocketOpener& openSocket);

// The answer to one request.
struct HttpAnswer {
  std::uint32_t status = 0;
  std::wstring date;     // the Date header; empty without one
  std::wstring body;     // at most its first 64 KiB
  std::wstring failure;  // why there was no answer; everything else is empty then
};

// Judges the answer to the request for a newer version, which the program sends at each start.
Outcome JudgeReply(const HttpAnswer& answer);

// Judges the answer to a request for the service's root. `nowSeconds` is this computer's clock, UTC
// since 1970; `zone` is a line about its time zone.
Outcome JudgeClock(const HttpAnswer& answer, std::int64_t nowSeconds, const std::wstring& zone);

// Seconds since 1970 for "Sun, 06 Nov 1994 08:49:37 GMT" (RFC 9110, section 5.6.7); empty for any
// other form.
std::optional<std::int64_t> ParseHttpDate(std::wstring_view text);

// Sends a GET; gives up on a silent service after about ten seconds. Windows only.
HttpAnswer Fetch(const std::wstring& url);

// A line with the time zone and its offset from UTC. Windows only.
std::wstring TimeZoneLine();

}  // namespace checks
