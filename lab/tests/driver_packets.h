#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <vector>

// Packets for the driver's tests, and checksums computed differently from the driver: by adding
// every 16-bit word modulo 65535, as RFC 1071 defines the sum.
namespace packets {

using Bytes = std::vector<std::uint8_t>;

inline std::uint16_t Word(const Bytes& bytes, std::size_t at) {
  return static_cast<std::uint16_t>(bytes[at] * 256 + bytes[at + 1]);
}

inline void SetWord(Bytes& bytes, std::size_t at, unsigned value) {
  bytes[at] = static_cast<std::uint8_t>(value / 256);
  bytes[at + 1] = static_cast<std::uint8_t>(value % 256);
}

// The one's complement sum of `bytes` as a remainder; 0 stands for both of its zeros.
inline unsigned Remainder(const Bytes& bytes) {
  unsigned remainder = 0;
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    const unsigned weight = i % 2 == 0 ? 256 : 1;
    remainder = (remainder + bytes[i] * weight) % 65535;
  }
  return remainder;
}

// The checksum of `bytes`, whose checksum field is 0.
inline unsigned Checksum(const Bytes& bytes) {
  const unsigned remainder = Remainder(bytes);
  const bool allZero = remainder == 0 && Bytes(bytes.size()) == bytes;
  if (allZero) return 0xFFFF;
  return remainder == 0 ? 0 : 65535 - remainder;
}

inline constexpr std::uint32_t kSource = 0x0A0A0002;       // 10.10.0.2
inline constexpr std::uint32_t kDestination = 0xC0A84D0A;  // 192.168.77.10

// An IPv4 packet around `transport`; the IP checksum field is left 0.
inline Bytes Ip(std::uint8_t protocol, const Bytes& transport, std::uint32_t source = kSource,
                std::uint32_t destination = kDestination, std::size_t optionBytes = 0) {
  Bytes packet(20 + optionBytes + transport.size(), 1);  // options of kind 1: no operation
  std::copy(transport.rbegin(), transport.rend(), packet.rbegin());
  packet[0] = static_cast<std::uint8_t>(0x45 + optionBytes / 4);
  packet[1] = 0;
  SetWord(packet, 2, static_cast<unsigned>(packet.size()));
  SetWord(packet, 4, 0x1234);
  SetWord(packet, 6, 0);
  packet[8] = 64;
  packet[9] = protocol;
  SetWord(packet, 10, 0);
  SetWord(packet, 12, source >> 16U);
  SetWord(packet, 14, source & 0xFFFFU);
  SetWord(packet, 16, destination >> 16U);
  SetWord(packet, 18, destination & 0xFFFFU);
  return packet;
}

inline Bytes Payload(std::size_t bytes) {
  Bytes payload(bytes);
  for (std::size_t i = 0; i < bytes; ++i) payload[i] = static_cast<std::uint8_t>(i * 7 + 3);
  return payload;
}

inline Bytes Join(Bytes head, const Bytes& tail) {
  head.insert(head.end(), tail.begin(), tail.end());
  return head;
}

// The transports' checksum fields are set to `sum`.
inline Bytes Icmp(const Bytes& payload, unsigned sum = 0) {
  Bytes header = {8, 0, 0, 0, 0x11, 0x22, 0, 1};  // echo request, identifier 1122
  SetWord(header, 2, sum);
  return Join(header, payload);
}

inline Bytes Udp(std::uint16_t from, std::uint16_t to, const Bytes& payload, unsigned sum = 0) {
  Bytes header(8);
  SetWord(header, 0, from);
  SetWord(header, 2, to);
  SetWord(header, 4, static_cast<unsigned>(8 + payload.size()));
  SetWord(header, 6, sum);
  return Join(header, payload);
}

inline Bytes Tcp(std::uint16_t from, std::uint16_t to, const Bytes& payload, unsigned sum = 0) {
  Bytes header = {0, 0, 0, 0, 1, 2, 3, 4, 5, 6, 7, 8, 0x50, 0x02, 0x20, 0, 0, 0, 0, 0};  // SYN
  SetWord(header, 0, from);
  SetWord(header, 2, to);
  SetWord(header, 16, sum);
  return Join(header, payload);
}

// The right values of the checksum fields of `packet`, which must be well-formed. Both ignore the
// fields' current values.
inline unsigned ExpectedIpSum(Bytes packet) {
  SetWord(packet, 10, 0);
  packet.resize((packet[0] % 16) * std::size_t{4});
  return Checksum(packet);
}

inline unsigned ExpectedTransportSum(const Bytes& packet, std::size_t fieldAt) {
  const std::size_t start = (packet[0] % 16) * std::size_t{4};
  Bytes bytes(packet.begin() + static_cast<std::ptrdiff_t>(start),
              packet.begin() + static_cast<std::ptrdiff_t>(Word(packet, 2)));
  SetWord(bytes, fieldAt, 0);
  const unsigned length = static_cast<unsigned>(bytes.size());
  if (packet[9] == 1) return Checksum(bytes);
  Bytes pseudo(packet.begin() + 12, packet.begin() + 20);
  for (const unsigned part : {0U, unsigned{packet[9]}, length / 256, length % 256}) {
    pseudo.push_back(static_cast<std::uint8_t>(part));
  }
  return Checksum(Join(pseudo, bytes));
}

}  // namespace packets
