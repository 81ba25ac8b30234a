#include "driver/injection.h"

namespace driver {

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
