#include <cstddef>

#include "platform/windows_sdk.h"
#include "tunnel/adapter_list.h"
// After the SDK, which it needs.
#include <iphlpapi.h>

namespace tunnel {
namespace {

// The system's list, in one buffer that its pointers point into.
SystemList ReadAdapterList() {
  constexpr ULONG kFlags =
      GAA_FLAG_SKIP_ANYCAST | GAA_FLAG_SKIP_MULTICAST | GAA_FLAG_SKIP_DNS_SERVER;
  return ReadSystemList([](std::byte* buffer, std::uint32_t& sizeBytes) -> std::uint32_t {
    ULONG size = sizeBytes;
    // operator new aligns for any record.
    const ULONG error = ::GetAdaptersAddresses(
        AF_INET, kFlags, nullptr, reinterpret_cast<IP_ADAPTER_ADDRESSES*>(buffer), &size);
    sizeBytes = size;
    return error;
  });
}

}  // namespace

LocalNetworks CollectLocalNetworks() {
  std::vector<AdapterAddress> addresses;
  const SystemList list = ReadAdapterList();
  if (list.bytes.empty()) return {{}, list.error};
  const auto* adapter = reinterpret_cast<const IP_ADAPTER_ADDRESSES*>(list.bytes.data());
  for (; adapter != nullptr; adapter = adapter->Next) {
    const bool isUp = adapter->OperStatus == IfOperStatusUp;
    for (const auto* unicast = adapter->FirstUnicastAddress; unicast != nullptr;
         unicast = unicast->Next) {
      const SOCKADDR* address = unicast->Address.lpSockaddr;
      if (address == nullptr || address->sa_family != AF_INET) continue;
      const auto* ipv4 = reinterpret_cast<const sockaddr_in*>(address);
      addresses.push_back({isUp, ::ntohl(ipv4->sin_addr.s_addr), unicast->OnLinkPrefixLength});
    }
  }
  return {SelectLocalNetworks(addresses), 0};
}

}  // namespace tunnel
