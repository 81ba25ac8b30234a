#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

#include "driver/filter.h"

// Reads the fields of the filter language from a packet and its record. Pure.
namespace driver::readers {

using Value = std::optional<std::uint64_t>;
using Bytes = std::span<const std::uint8_t>;

// kBytes big-endian bytes at `offset`, shifted and masked.
template <unsigned kBytes>
Value ReadAt(Bytes bytes, std::size_t offset, unsigned shift = 0, std::uint64_t mask = UINT64_MAX) {
  if (bytes.size() < kBytes || offset > bytes.size() - kBytes) return std::nullopt;
  std::uint64_t value = 0;
  for (unsigned i = 0; i < kBytes; ++i) value = value << 8U | bytes[offset + i];
  return value >> shift & mask;
}

// The unsigned number of kBytes at the index.
template <unsigned kBytes>
Value ReadAtIndex(Bytes bytes, const FieldIndex& index) {
  if (!index.isFromEnd) return ReadAt<kBytes>(bytes, index.bytes);
  return index.bytes <= bytes.size() ? ReadAt<kBytes>(bytes, bytes.size() - index.bytes)
                                     : std::nullopt;
}

template <std::uint64_t kValue>
Value Constant(const PacketView&, const FieldIndex&) {
  return kValue;
}
inline Value Absent(const PacketView&, const FieldIndex&) {
  return std::nullopt;
}

template <std::uint32_t kBit, bool kWanted = true>
Value RecordBit(const PacketView& packet, const FieldIndex&) {
  return ((packet.address.flags & kBit) != 0) == kWanted ? 1U : 0U;
}
inline Value Timestamp(const PacketView& packet, const FieldIndex&) {
  return static_cast<std::uint64_t>(packet.address.timestamp);
}
inline Value Event(const PacketView& packet, const FieldIndex&) {
  return packet.address.flags >> 8U & 0xFFU;
}
inline Value InterfaceIndex(const PacketView& packet, const FieldIndex&) {
  return packet.address.interfaceIndex;
}
inline Value SubInterfaceIndex(const PacketView& packet, const FieldIndex&) {
  return packet.address.subInterfaceIndex;
}
inline Value Length(const PacketView& packet, const FieldIndex&) {
  return packet.bytes.size();
}
inline Value HasIp(const PacketView& packet, const FieldIndex&) {
  return packet.headers ? 1U : 0U;
}
inline Value HasIpv6(const PacketView& packet, const FieldIndex&) {
  return IsIpv6(packet.bytes) ? 1U : 0U;
}
inline Value IsFragment(const PacketView& packet, const FieldIndex&) {
  return packet.headers && packet.headers->IsFragment() ? 1U : 0U;
}

template <Transport kTransport>
Value HasTransport(const PacketView& packet, const FieldIndex&) {
  return packet.headers && packet.headers->transport == kTransport ? 1U : 0U;
}

template <unsigned kBytes, std::size_t kOffset, unsigned kShift, std::uint64_t kMask>
Value IpField(const PacketView& packet, const FieldIndex&) {
  if (!packet.headers) return std::nullopt;
  return ReadAt<kBytes>(packet.bytes, kOffset, kShift, kMask);
}

// The address at the offset, in IPv6 form.
template <std::size_t kOffset>
Value IpAddress(const PacketView& packet, const FieldIndex&) {
  if (!packet.headers) return std::nullopt;
  return kIpv4Prefix | *ReadAt<4>(packet.bytes, kOffset);
}

template <Transport kTransport, unsigned kBytes, std::size_t kOffset, unsigned kShift,
          std::uint64_t kMask>
Value TransportField(const PacketView& packet, const FieldIndex&) {
  if (!packet.headers || packet.headers->transport != kTransport) return std::nullopt;
  return ReadAt<kBytes>(packet.bytes, packet.headers->headerBytes + kOffset, kShift, kMask);
}

// The bytes after the transport's header; empty if that states more than there is.
inline Bytes PayloadOf(const PacketView& packet) {
  const Headers& headers = *packet.headers;
  const std::size_t start = headers.headerBytes + headers.transportHeaderBytes;
  const std::size_t end = std::min(headers.totalBytes, packet.bytes.size());
  return start < end ? packet.bytes.subspan(start, end - start) : Bytes();
}

template <Transport kTransport>
Value PayloadLength(const PacketView& packet, const FieldIndex&) {
  if (!packet.headers || packet.headers->transport != kTransport) return std::nullopt;
  return PayloadOf(packet).size();
}
template <Transport kTransport, unsigned kBytes>
Value PayloadBytes(const PacketView& packet, const FieldIndex& index) {
  if (!packet.headers || packet.headers->transport != kTransport) return std::nullopt;
  return ReadAtIndex<kBytes>(PayloadOf(packet), index);
}
template <unsigned kBytes>
Value PacketBytes(const PacketView& packet, const FieldIndex& index) {
  return ReadAtIndex<kBytes>(packet.bytes, index);
}

// The address (byte 12 or 16) or port (first or second) of this host or of the peer.
template <bool kLocal>
Value EndAddress(const PacketView& packet, const FieldIndex& index) {
  const bool outbound = (packet.address.flags & kAddressOutbound) != 0;
  return outbound == kLocal ? IpAddress<12>(packet, index) : IpAddress<16>(packet, index);
}
template <bool kLocal>
Value EndPort(const PacketView& packet, const FieldIndex&) {
  if (!packet.headers || (packet.headers->transport != Transport::Tcp &&
                          packet.headers->transport != Transport::Udp)) {
    return std::nullopt;
  }
  const bool outbound = (packet.address.flags & kAddressOutbound) != 0;
  return ReadAt<2>(packet.bytes, packet.headers->headerBytes + (outbound == kLocal ? 0U : 2U));
}

// Bits of the packet's hash, so that equal headers give equal values.
template <std::uint64_t kMask>
Value Random(const PacketView& packet, const FieldIndex&) {
  return HashHeaders(packet.bytes, packet.headers, 0) & kMask;
}

}  // namespace driver::readers
