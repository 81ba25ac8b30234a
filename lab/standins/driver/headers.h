#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

// Reading of IPv4 packets for the filter, the checksums and the injection rules. Pure; any thread.
namespace driver {

inline constexpr std::uint8_t kProtocolIcmp = 1;
inline constexpr std::uint8_t kProtocolTcp = 6;
inline constexpr std::uint8_t kProtocolUdp = 17;

enum class Transport { None, Icmp, Tcp, Udp };

struct Headers {
  std::size_t headerBytes = 0;  // of the IP header; the transport starts here
  std::size_t totalBytes = 0;   // as the IP header says; may exceed the buffer
  std::uint8_t protocol = 0;
  bool moreFragments = false;
  std::uint16_t fragmentOffset = 0;  // in units of 8 bytes
  // None for later fragments, other protocols, and headers that are cut off or malformed.
  Transport transport = Transport::None;
  // Of the transport's header, as it announces itself. TCP's may announce more than there is.
  std::size_t transportHeaderBytes = 0;

  [[nodiscard]] bool IsFragment() const noexcept { return moreFragments || fragmentOffset != 0; }
  // From the transport on, as the IP header says.
  [[nodiscard]] std::size_t SegmentBytes() const noexcept { return totalBytes - headerBytes; }
  // Whether the transport is read but its header goes on past the segment's end.
  [[nodiscard]] bool IsTransportCut() const noexcept {
    return transport != Transport::None && transportHeaderBytes > SegmentBytes();
  }
};

// Nothing when `packet` is not IPv4 or its IP header is malformed: under 20 bytes, header length
// under 20 or beyond the buffer, total length under the header length.
std::optional<Headers> ReadHeaders(std::span<const std::uint8_t> packet) noexcept;

// Whether this is an IPv6 packet, of which nothing more is read here.
bool IsIpv6(std::span<const std::uint8_t> packet) noexcept;

// A hash of the packet's IP and transport headers, without what they carry (FNV-1a). The same
// headers and seed give the same; the values are not those of the published library.
std::uint64_t HashHeaders(std::span<const std::uint8_t> packet,
                          const std::optional<Headers>& headers, std::uint64_t seed) noexcept;

// Big-endian numbers inside a packet; the caller has checked the bounds.
std::uint16_t ReadU16Be(std::span<const std::uint8_t> bytes, std::size_t offset) noexcept;
std::uint32_t ReadU32Be(std::span<const std::uint8_t> bytes, std::size_t offset) noexcept;
void WriteU16Be(std::span<std::uint8_t> bytes, std::size_t offset, std::uint16_t value) noexcept;

}  // namespace driver
