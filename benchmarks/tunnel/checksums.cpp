#include "benchmarks/tunnel/checksums.h"

#include <arpa/inet.h>

#include <cstdint>
#include <cstring>

namespace bench {
namespace {

constexpr std::size_t kLeastHeaderBytes = 20;
constexpr std::size_t kTotalLengthAt = 2;
constexpr std::size_t kFragmentAt = 6;
constexpr std::size_t kProtocolAt = 9;
constexpr std::size_t kHeaderChecksumAt = 10;
constexpr std::size_t kAddressesAt = 12;
constexpr std::uint16_t kFragmentBits = 0x3FFF;  // more fragments, or an offset
constexpr unsigned kIcmp = 1;
constexpr unsigned kTcp = 6;
constexpr unsigned kUdp = 17;

template <typename Number>
Number Load(const std::byte* from) noexcept {
  Number number;
  std::memcpy(&number, from, sizeof(number));
  return number;
}

// A one's complement sum may use words of any width and byte order as long as the carries are added
// back (RFC 1071, section 2): here eight bytes at a time, in memory order.
std::uint64_t Add(std::uint64_t sum, std::uint64_t words) noexcept {
  sum += words;
  return sum + (sum < words ? 1 : 0);
}

std::uint64_t AddBytes(std::uint64_t sum, const std::byte* at, std::size_t count) noexcept {
  std::uint64_t other = 0;  // two chains of additions, so that neither waits for the other's carry
  for (; count >= 16; at += 16, count -= 16) {
    sum = Add(sum, Load<std::uint64_t>(at));
    other = Add(other, Load<std::uint64_t>(at + 8));
  }
  if (count >= 8) {
    sum = Add(sum, Load<std::uint64_t>(at));
    at += 8;
    count -= 8;
  }
  std::uint64_t rest = 0;
  std::memcpy(&rest, at, count);
  return Add(Add(sum, other), rest);
}

std::uint16_t Fold(std::uint64_t sum) noexcept {
  sum = (sum & 0xFFFFFFFF) + (sum >> 32);
  while (sum >> 16 != 0) sum = (sum & 0xFFFF) + (sum >> 16);
  return static_cast<std::uint16_t>(~sum);
}

void Store(std::byte* at, std::uint16_t sum) noexcept {
  std::memcpy(at, &sum, sizeof(sum));
}

// Offset of the transport checksum from the transport header; 0: the protocol has none here.
std::size_t TransportChecksumAt(unsigned protocol, std::size_t transportBytes) noexcept {
  if (protocol == kIcmp && transportBytes >= 8) return 2;
  if (protocol == kUdp && transportBytes >= 8) return 6;
  return protocol == kTcp && transportBytes >= 20 ? 16 : 0;
}

void WriteTransportChecksum(std::byte* packet, std::size_t headerBytes, std::size_t totalBytes) {
  const auto protocol = std::to_integer<unsigned>(packet[kProtocolAt]);
  const std::size_t bytes = totalBytes - headerBytes;
  const std::size_t at = TransportChecksumAt(protocol, bytes);
  if (at == 0) return;
  std::byte* const transport = packet + headerBytes;
  Store(transport + at, 0);
  std::uint64_t sum = 0;
  if (protocol != kIcmp) {
    sum = Load<std::uint64_t>(packet + kAddressesAt);
    sum = Add(sum, htons(static_cast<std::uint16_t>(protocol)));
    sum = Add(sum, htons(static_cast<std::uint16_t>(bytes)));
  }
  const std::uint16_t folded = Fold(AddBytes(sum, transport, bytes));
  Store(transport + at, protocol == kUdp && folded == 0 ? std::uint16_t{0xFFFF} : folded);
}

}  // namespace

bool WriteChecksums(std::span<std::byte> packet) noexcept {
  if (packet.size() < kLeastHeaderBytes) return false;
  const auto first = std::to_integer<unsigned>(packet[0]);
  const std::size_t headerBytes = (first & 0xFU) * 4U;
  const std::size_t totalBytes = ntohs(Load<std::uint16_t>(&packet[kTotalLengthAt]));
  if (first >> 4 != 4 || headerBytes < kLeastHeaderBytes || totalBytes < headerBytes ||
      totalBytes > packet.size()) {
    return false;
  }
  Store(&packet[kHeaderChecksumAt], 0);
  Store(&packet[kHeaderChecksumAt], Fold(AddBytes(0, packet.data(), headerBytes)));
  const std::uint16_t fragment = ntohs(Load<std::uint16_t>(&packet[kFragmentAt]));
  if ((fragment & kFragmentBits) == 0) {
    WriteTransportChecksum(packet.data(), headerBytes, totalBytes);
  }
  return true;
}

}  // namespace bench
