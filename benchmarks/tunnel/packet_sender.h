#pragma once

#include <netinet/in.h>

#include <chrono>
#include <cstddef>
#include <cstdint>

// The messages between the two ends of packets_main.cpp, and the sending end.
namespace bench {

enum class MessageKind : std::uint32_t { Data = 1, Credit, RequestDown, Result };

// The start of every datagram's payload. Both ends run on one machine, so it is sent in memory
// layout. It fits the smallest measured packet (64 bytes, 36 of them payload).
struct Message {
  MessageKind kind = MessageKind::Data;
  std::uint32_t run = 0;         // of the measurement; packets left over from another are dropped
  std::uint64_t sequence = 0;    // Data: from 1. Credit: the highest that arrived. Result: lost
  std::uint64_t count = 0;       // Credit, Result: how many arrived. Request: payload bytes
  std::uint64_t durationNs = 0;  // Request: how long to send. Result: how long it took
};

struct SendPlan {
  int socket = -1;
  sockaddr_in to = {};
  std::uint32_t run = 0;
  std::size_t payloadBytes = 0;
  std::chrono::nanoseconds duration{0};
};

struct SendResult {
  std::uint64_t received = 0;  // by the other end, according to its credits
  std::uint64_t lost = 0;      // of those up to the newest named by a credit
  std::chrono::nanoseconds time{0};
};

inline constexpr std::size_t kMaxPayloadBytes = 1472;

// The sink sends a credit for every so many packets.
inline constexpr std::uint64_t kPacketsPerCredit = 32;

// Sends packets for plan.duration as fast as the other end gives credit for them: 64 in flight at
// first, up to 256 as long as none is lost.
SendResult SendPackets(const SendPlan& plan);

}  // namespace bench
