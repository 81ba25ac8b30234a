#include "driver/filter_readers.h"

#include <algorithm>

namespace driver::readers {

Value Timestamp(const PacketView& packet, const FieldIndex&) {
  return static_cast<std::uint64_t>(packet.address.timestamp);
}

Value Event(const PacketView& packet, const FieldIndex&) {
  return packet.address.flags >> 8U & 0xFFU;
}

Value InterfaceIndex(const PacketView& packet, const FieldIndex&) {
  return packet.address.interfaceIndex;
}

Value SubInterfaceIndex(const PacketView& packet, const FieldIndex&) {
  return packet.address.subInterfaceIndex;
}

Value Length(const PacketView& packet, const FieldIndex&) {
  return packet.bytes.size();
}

Value HasIp(const PacketView& packet, const FieldIndex&) {
  return packet.headers ? 1U : 0U;
}

Value HasIpv6(const PacketView& packet, const FieldIndex&) {
  return IsIpv6(packet.bytes) ? 1U : 0U;
}

Value IsFragment(const PacketView& packet, const FieldIndex&) {
  return packet.headers && packet.headers->IsFragment() ? 1U : 0U;
}

Bytes PayloadOf(const PacketView& packet) {
  const Headers& headers = *packet.headers;
  const std::size_t start = headers.headerBytes + headers.transportHeaderBytes;
  const std::size_t end = std::min(headers.totalBytes, packet.bytes.size());
  return start < end ? packet.bytes.subspan(start, end - start) : Bytes();
}

}  // namespace driver::readers
