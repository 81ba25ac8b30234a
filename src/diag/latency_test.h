#pragma once

#include <cstdint>
#include <functional>
#include <string>

#include "settings/settings.h"

// Measuring the round trip to an address that the engineer enters, as a rule a device on site.
namespace diag {

enum class EchoOutcome {
  NoHandle,  // the system refuses to make an echo request
  Silence,   // nothing came back in time
  Refused,   // an answer that is no echo, such as "unreachable"
  Answered,
};

struct Echo {
  EchoOutcome outcome = EchoOutcome::Silence;
  std::uint32_t roundTripMs = 0;  // of an answered one
};

// Sends one ICMP echo request and waits for its answer, for 1000 ms. `address` in host order.
using EchoSender = std::function<Echo(std::uint32_t address)>;

// The system's. Windows only.
Echo SendEcho(std::uint32_t address);

// Sends one echo request to testIp, an IPv4 address, perhaps in white space. Leaves the outcome in
// latencyText and returns the line for the log. Blocks for up to a second; any thread.
std::wstring RunLatencyTest(settings::Settings& settings, const EchoSender& sendEcho);

}  // namespace diag
