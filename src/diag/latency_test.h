#pragma once

#include <cstdint>
#include <functional>
#include <string>

#include "settings/settings.h"

// Measures the round trip to an address that the engineer enters, usually a device on site.
namespace diag {

enum class EchoOutcome {
  NoHandle,  // the system refuses the request
  Silence,   // no answer in time
  Refused,   // another answer than an echo, such as "unreachable"
  Answered,
};

struct Echo {
  EchoOutcome outcome = EchoOutcome::Silence;
  std::uint32_t roundTripMs = 0;  // only if answered
};

// Sends one ICMP echo request to `address` (host order) and waits up to 1000 ms for the answer.
using EchoSender = std::function<Echo(std::uint32_t address)>;

// The system's. Windows only.
Echo SendEcho(std::uint32_t address);

// Sends one echo request to the IPv4 address in testIp, sets latencyText and returns the line for
// the log. Blocks for up to a second; any thread.
std::wstring RunLatencyTest(settings::Settings& settings, const EchoSender& sendEcho);

}  // namespace diag
