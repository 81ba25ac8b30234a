#pragma once

#include <cstddef>
#include <span>

namespace bench {

// Writes the checksums of one IPv4 packet: the header's and, unless it is a fragment, that of ICMP,
// TCP or UDP (RFC 1071, RFC 768, RFC 9293). Returns false unless `packet` is a whole IPv4 packet.
bool WriteChecksums(std::span<std::byte> packet) noexcept;

}  // namespace bench
