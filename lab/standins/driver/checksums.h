#pragma once

#include <cstdint>
#include <span>

#include "driver/headers.h"
#include "driver/record.h"

// Internet checksums (RFC 1071) of IPv4 packets as the published library computes them. Pure.
namespace driver {

inline constexpr std::uint64_t kNoIpChecksum = 1;
inline constexpr std::uint64_t kNoIcmpChecksum = 2;
inline constexpr std::uint64_t kNoTcpChecksum = 8;
inline constexpr std::uint64_t kNoUdpChecksum = 16;

// How far a TCP header may announce more than its segment holds: 60 bytes instead of 20.
inline constexpr std::size_t kMaxReadBehind = 40;

// Writes the IP checksum, then that of the transport, from scratch; `flags` leave parts out.
// Sets the valid bits of what it wrote in `address`, if given (there is none for ICMP); clears
// none. Bytes past the total length are left out. An all-zero UDP sum is written as FFFF.
//
// A TCP header that announces more than its segment holds is summed up as announced: up to
// kMaxReadBehind bytes behind the packet, also behind the buffer, are read and must be readable.
//
// False with nothing written: no valid IPv4 header. False with only the IP checksum written: a
// transport checksum was due, but the packet is a first fragment or longer than the buffer. True
// with only the IP checksum: later fragments, other protocols, a cut or malformed transport header,
// or a transport that `flags` leave out.
bool CalcChecksums(std::span<std::uint8_t> packet, Address* address, std::uint64_t flags) noexcept;

// One hop less, and the IP checksum as right or wrong as before (RFC 1624). False, with nothing
// written, when no hop would be left, or the packet is not IPv4.
bool DecrementTtl(std::span<std::uint8_t> packet) noexcept;

// Whether every checksum in `packet` holds, as a receiving host checks them: IP always, the
// transport unless the packet is a fragment or the transport is unknown or cut; a UDP sum of 0 is
// "none".
// `packet` is whole: its size is at least the total length of `headers`.
bool HasValidChecksums(std::span<const std::uint8_t> packet, const Headers& headers) noexcept;

// What a program sees with checksum offload: the sums of IP and of a whole transport are 0.
void ClearChecksums(std::span<std::uint8_t> packet, const Headers& headers) noexcept;

// What the driver does before it sends a packet on: computes the IP, TCP and UDP sums whose valid
// bit in `address` is 0, and an ICMP sum that ClearChecksums() left at 0.
void CompleteChecksums(std::span<std::uint8_t> packet, const Headers& headers,
                       const Address& address) noexcept;

}  // namespace driver
