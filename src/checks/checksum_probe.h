#pragma once

#include <cstddef>
#include <functional>
#include <span>
#include <string>
#include <vector>

namespace checks {

// A packet without checksums and the places where they belong.
struct ChecksumProbe {
  std::wstring name;
  std::vector<std::byte> packet;  // IPv4 header first; checksums are 0
  std::size_t sumOffset = 0;      // of ICMP's, TCP's or UDP's; the IP header's is at 10
  bool hasPseudoHeader = false;   // TCP and UDP count addresses, protocol and length (RFC 9293)
};

// One ICMP echo, one TCP segment of an odd length and one UDP datagram.
std::vector<ChecksumProbe> MakeChecksumProbes();

// Has `recalculate` write the packet's checksums and compares them with the sums of RFC 1071.
// Empty when both are right; else which is wrong. What it throws is returned as text.
std::wstring WhatIsWrong(const ChecksumProbe& probe,
                         const std::function<void(std::span<std::byte> packet)>& recalculate);

}  // namespace checks
