#pragma once

#include <cstdint>
#include <span>

#include "driver/packet.h"

// Internet checksums (RFC 1071) of IPv4 packets as the published library computes them. Pure.
namespace driver {

inline constexpr std::uint64_t kNoIpChecksum = 1;
inline constexpr std::uint64_t kNoIcmpChecksum = 2;
inline constexpr std::uint64_t kNoTcpChecksum = 8;
inline constexpr std::uint64_t kNoUdpChecksum = 16;

// The most that a TCP header can state beyond its segment: 60 bytes instead of 20.
inline constexpr std::size_t kMaxReadBehind = 40;

// Writes the IP checksum, then that of the transport, from scratch; `flags` leave parts out.
// Sets the valid bits of the sums it wrote in `address`, if given (ICMP has no bit); clears none.
// Ignores bytes past the total length. Writes an all-zero UDP sum as FFFF.
//
// A TCP header that states more than its segment holds is summed up as stated: up to kMaxReadBehind
// bytes after the packet, even after the buffer, are read and must be readable.
//
// Returns false and writes nothing without a valid IPv4 header. Returns false and writes only the
// IP checksum if a transport checksum was due but the packet is a first fragment or longer than the
// buffer. Returns true with only the IP checksum for later fragments, other protocols, a cut or
// malformed transport header, or a transport that `flags` leave out.
bool CalcChecksums(std::span<std::uint8_t> packet, Address* address, std::uint64_t flags) noexcept;

// Decrements the time to live and adjusts the IP checksum (RFC 1624), so that it stays as right or
// wrong as before. Returns false and writes nothing if no hop would be left or it is not IPv4.
bool DecrementTtl(std::span<std::uint8_t> packet) noexcept;

// Checks the checksums as a receiving host does: IP always; the transport unless the packet is a
// fragment or the transport is unknown or cut; a UDP sum of 0 means none. `packet` must have at
// least the total length of `headers`.
bool HasValidChecksums(std::span<const std::uint8_t> packet, const Headers& headers) noexcept;

// Zeroes the sums of IP and of a complete transport, as programs see them with checksum offload.
void ClearChecksums(std::span<std::uint8_t> packet, const Headers& headers) noexcept;

// Called before a packet is sent on: computes the IP, TCP and UDP sums whose valid bit in `address`
// is 0, and an ICMP sum that ClearChecksums() zeroed.
void CompleteChecksums(std::span<std::uint8_t> packet, const Headers& headers,
                       const Address& address) noexcept;

}  // namespace driver
