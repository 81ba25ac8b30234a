#include "driver/packet.h"

#include <algorithm>

namespace driver {
namespace {

constexpr std::size_t kMinIpHeaderBytes = 20;
constexpr std::size_t kMinTcpHeaderBytes = 20;
constexpr std::size_t kMinIcmpOrUdpHeaderBytes = 8;

// A TCP header that states more than `payload` holds is read all the same; one that states less
// than the minimum is not.
void ReadTransport(Headers& headers, std::span<const std::uint8_t> payload) noexcept {
  if (headers.protocol == kProtocolTcp) {
    if (payload.size() < kMinTcpHeaderBytes) return;
    headers.transportHeaderBytes = (payload[12] >> 4U) * std::size_t{4};
    if (headers.transportHeaderBytes >= kMinTcpHeaderBytes) headers.transport = Transport::Tcp;
    return;
  }
  if (payload.size() < kMinIcmpOrUdpHeaderBytes) return;
  headers.transportHeaderBytes = kMinIcmpOrUdpHeaderBytes;
  if (headers.protocol == kProtocolIcmp) headers.transport = Transport::Icmp;
  if (headers.protocol == kProtocolUdp) headers.transport = Transport::Udp;
}

}  // namespace

std::optional<Headers> ReadHeaders(std::span<const std::uint8_t> packet) noexcept {
  if (packet.size() < kMinIpHeaderBytes || packet[0] >> 4U != 4) return std::nullopt;
  Headers headers;
  headers.headerBytes = (packet[0] & 0x0FU) * std::size_t{4};
  headers.totalBytes = ReadU16Be(packet, 2);
  if (headers.headerBytes < kMinIpHeaderBytes || headers.headerBytes > packet.size() ||
      headers.totalBytes < headers.headerBytes) {
    return std::nullopt;
  }
  const std::uint16_t fragment = ReadU16Be(packet, 6);
  headers.moreFragments = (fragment & 0x2000U) != 0;
  headers.fragmentOffset = fragment & 0x1FFFU;
  headers.protocol = packet[9];
  // Only the first fragment has a transport header.
  if (headers.fragmentOffset == 0) {
    const std::size_t endBytes = std::min(headers.totalBytes, packet.size());
    ReadTransport(headers, packet.subspan(headers.headerBytes, endBytes - headers.headerBytes));
  }
  return headers;
}

bool IsIpv6(std::span<const std::uint8_t> packet) noexcept {
  constexpr std::size_t kHeaderBytes = 40;
  return packet.size() >= kHeaderBytes && packet[0] >> 4U == 6;
}

std::uint64_t HashHeaders(std::span<const std::uint8_t> packet,
                          const std::optional<Headers>& headers, std::uint64_t seed) noexcept {
  constexpr std::uint64_t kOffsetBasis = 0xCBF29CE484222325;
  constexpr std::uint64_t kPrime = 0x100000001B3;
  if (headers) {
    packet =
        packet.first(std::min(packet.size(), headers->headerBytes + headers->transportHeaderBytes));
  }
  std::uint64_t hash = kOffsetBasis ^ seed;
  for (const std::uint8_t byte : packet) hash = (hash ^ byte) * kPrime;
  return hash;
}

std::uint16_t ReadU16Be(std::span<const std::uint8_t> bytes, std::size_t offset) noexcept {
  return static_cast<std::uint16_t>(bytes[offset] << 8U | bytes[offset + 1]);
}

std::uint32_t ReadU32Be(std::span<const std::uint8_t> bytes, std::size_t offset) noexcept {
  return static_cast<std::uint32_t>(ReadU16Be(bytes, offset)) << 16U | ReadU16Be(bytes, offset + 2);
}

void WriteU16Be(std::span<std::uint8_t> bytes, std::size_t offset, std::uint16_t value) noexcept {
  bytes[offset] = static_cast<std::uint8_t>(value >> 8U);
  bytes[offset + 1] = static_cast<std::uint8_t>(value & 0xFFU);
}

std::uint32_t CheckInjection(std::span<const std::uint8_t> packet,
                             const Address& address) noexcept {
  constexpr std::size_t kMinIpHeaderBytes = 20;
  if (packet.size() < kMinIpHeaderBytes) return kErrorInsufficientBuffer;
  if (packet[0] >> 4U != 4) return kErrorInvalidParameter;
  const std::uint16_t totalBytes = ReadU16Be(packet, 2);
  if (totalBytes == 0) return kErrorNoSystemResources;
  if (packet.size() < totalBytes) return kErrorInsufficientBuffer;
  if (!ReadHeaders(packet)) return kErrorInvalidParameter;
  const bool outbound = (address.flags & kAddressOutbound) != 0;
  return outbound || address.interfaceIndex != 0 ? kOk : kErrorInvalidParameter;
}

}  // namespace driver
