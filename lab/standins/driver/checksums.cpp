#include "driver/checksums.h"

#include <algorithm>
#include <cstddef>

namespace driver {
namespace {

constexpr std::size_t kIpChecksumAt = 10;

std::size_t TransportChecksumAt(Transport transport) noexcept {
  switch (transport) {
    case Transport::Icmp:
      return 2;
    case Transport::Tcp:
      return 16;
    default:
      return 6;  // UDP
  }
}

std::uint64_t AddWords(std::uint64_t sum, std::span<const std::uint8_t> bytes) noexcept {
  std::size_t i = 0;
  for (; i + 1 < bytes.size(); i += 2) sum += ReadU16Be(bytes, i);
  if (i < bytes.size()) sum += static_cast<std::uint64_t>(bytes[i]) << 8U;
  return sum;
}

std::uint16_t Fold(std::uint64_t sum) noexcept {
  while (sum >> 16U != 0) sum = (sum & 0xFFFFU) + (sum >> 16U);
  return static_cast<std::uint16_t>(~sum & 0xFFFFU);
}

// The transport's sum including its checksum field; 0 if that field is correct. Includes the bytes
// that a TCP header claims past its segment, even past the buffer.
std::uint16_t TransportSum(std::span<const std::uint8_t> packet, const Headers& headers) noexcept {
  const std::size_t bytes = std::max(headers.SegmentBytes(), headers.transportHeaderBytes);
  std::uint64_t sum = AddWords(0, {packet.data() + headers.headerBytes, bytes});
  if (headers.transport != Transport::Icmp) {
    sum = AddWords(sum, packet.subspan(12, 8)) + headers.protocol + bytes;
  }
  return Fold(sum);
}

// A host checks the transport's checksum only if it has the whole header and all data.
bool IsCheckable(const Headers& headers) noexcept {
  return headers.transport != Transport::None && !headers.IsFragment() && !headers.IsTransportCut();
}

void WriteIpChecksum(std::span<std::uint8_t> packet, const Headers& headers) noexcept {
  WriteU16Be(packet, kIpChecksumAt, 0);
  WriteU16Be(packet, kIpChecksumAt, Fold(AddWords(0, packet.first(headers.headerBytes))));
}

void WriteTransportChecksum(std::span<std::uint8_t> packet, const Headers& headers) noexcept {
  const std::size_t at = headers.headerBytes + TransportChecksumAt(headers.transport);
  WriteU16Be(packet, at, 0);
  std::uint16_t sum = TransportSum(packet, headers);
  if (headers.transport == Transport::Udp && sum == 0) sum = 0xFFFF;
  WriteU16Be(packet, at, sum);
}

std::uint64_t LeaveOutFlag(Transport transport) noexcept {
  switch (transport) {
    case Transport::Icmp:
      return kNoIcmpChecksum;
    case Transport::Tcp:
      return kNoTcpChecksum;
    default:
      return kNoUdpChecksum;
  }
}

std::uint32_t ValidBit(Transport transport) noexcept {
  switch (transport) {
    case Transport::Tcp:
      return kAddressTcpChecksum;
    case Transport::Udp:
      return kAddressUdpChecksum;
    default:
      return 0;
  }
}

}  // namespace

bool CalcChecksums(std::span<std::uint8_t> packet, Address* address, std::uint64_t flags) noexcept {
  const auto headers = ReadHeaders(packet);
  if (!headers) return false;
  std::uint32_t written = 0;
  if ((flags & kNoIpChecksum) == 0) {
    WriteIpChecksum(packet, *headers);
    written |= kAddressIpChecksum;
  }
  const bool isDue =
      headers->transport != Transport::None && (flags & LeaveOutFlag(headers->transport)) == 0;
  const bool isWhole = headers->totalBytes <= packet.size() && !headers->IsFragment();
  if (isDue && isWhole) {
    WriteTransportChecksum(packet, *headers);
    written |= ValidBit(headers->transport);
  }
  if (address != nullptr) address->flags |= written;
  return isWhole || !isDue;
}

bool DecrementTtl(std::span<std::uint8_t> packet) noexcept {
  constexpr std::size_t kTtlAt = 8;
  if (!ReadHeaders(packet) || packet[kTtlAt] <= 1) return false;
  --packet[kTtlAt];
  // The word with the time to live shrinks by 0x100, so its complement, and the sum, grow by it.
  const std::uint32_t sum = ReadU16Be(packet, kIpChecksumAt) + 0x100U;
  WriteU16Be(packet, kIpChecksumAt, static_cast<std::uint16_t>(sum + (sum >> 16U)));
  return true;
}

bool HasValidChecksums(std::span<const std::uint8_t> packet, const Headers& headers) noexcept {
  if (Fold(AddWords(0, packet.first(headers.headerBytes))) != 0) return false;
  if (!IsCheckable(headers)) return true;
  const std::size_t at = headers.headerBytes + TransportChecksumAt(headers.transport);
  if (headers.transport == Transport::Udp && ReadU16Be(packet, at) == 0) return true;
  return TransportSum(packet, headers) == 0;
}

void ClearChecksums(std::span<std::uint8_t> packet, const Headers& headers) noexcept {
  WriteU16Be(packet, kIpChecksumAt, 0);
  if (!IsCheckable(headers)) return;
  WriteU16Be(packet, headers.headerBytes + TransportChecksumAt(headers.transport), 0);
}

void CompleteChecksums(std::span<std::uint8_t> packet, const Headers& headers,
                       const Address& address) noexcept {
  if ((address.flags & kAddressIpChecksum) == 0) WriteIpChecksum(packet, headers);
  if (!IsCheckable(headers)) return;
  const std::size_t at = headers.headerBytes + TransportChecksumAt(headers.transport);
  const bool missing = headers.transport == Transport::Icmp
                           ? ReadU16Be(packet, at) == 0
                           : (address.flags & ValidBit(headers.transport)) == 0;
  if (missing) WriteTransportChecksum(packet, headers);
}

}  // namespace driver
