#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "checks/check.h"
#include "tunnel/relay/udp_datagram.h"

// Whether the central service can be reached, and agrees about the time. None of them asks for a
// connection.
namespace checks {

// Connects by TCP and closes again.
Outcome CheckServiceTcp(const std::wstring& serverUrl);

// Says hello to the relay's UDP port for a connection that does not exist, twice, and waits 1.5 s
// for each answer.
Outcome CheckServiceUdp(const std::wstring& serverUrl,
                        const tunnel::DatagramSocketOpener& openSocket);

// What came back for one request.
struct HttpAnswer {
  std::uint32_t status = 0;
  std::wstring date;     // of the header; empty without one
  std::wstring body;     // at most its first 64 KiB
  std::wstring failure;  // why there was no answer; then the rest is empty
};

// Of the question for a newer version, which the program asks at each start.
Outcome JudgeReply(const HttpAnswer& answer);

// Of a plain request of the service's root. `nowSeconds` is this computer's clock, UTC since 1970;
// `zone` a line that names its time zone.
Outcome JudgeClock(const HttpAnswer& answer, std::int64_t nowSeconds, const std::wstring& zone);

// "Sun, 06 Nov 1994 08:49:37 GMT" (RFC 9110, section 5.6.7) in seconds since 1970; nothing for any
// other form.
std::optional<std::int64_t> ParseHttpDate(std::wstring_view text);

// GET without a body; ends after about ten seconds at the latest when the service is silent.
// Windows only.
HttpAnswer Fetch(const std::wstring& url);

// A line that names the time zone and its distance from UTC. Windows only.
std::wstring TimeZoneLine();

}  // namespace checks
