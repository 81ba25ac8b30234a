#include <cstddef>

#include "platform/windows_sdk.h"
#include "tunnel/adapter_list.h"
// After the SDK, which it needs.
#include <iphlpapi.h>

namespace tunnel {
namespace {

// The system's list, in one buffer that its pointers point into; empty when it gives none.
std::vector<std::byte> ReadAdapterList() {
  constexpr ULONG kFlags =
      GAA_FLAG_SKIP_ANYCAST | GAA_FLAG_SKIP_MULTICAST | GAA_FLAG_SKIP_DNS_SERVER;
  ULONG sizeBytes = 0;
  ::GetAdaptersAddresses(AF_INET, kFlags, nullptr, nullptr, &sizeBytes);
  std::vector<std::byte> buffer(sizeBytes);
  if (buffer.empty()) return {};
  // operator new aligns for any record.
  auto* list = reinterpret_cast<IP_ADAPTER_ADDRESSES*>(buffer.data());
  if (::GetAdaptersAddresses(AF_INET, kFlags, nullptr, list, &sizeBytes) != ERROR_SUCCESS) {
    return {};
  }
  return buffer;
}

}  // namespace

std::vector<Ipv4Network> CollectLocalNetworks() {
  std::vector<AdapterAddress> addresses;
  const std::vector<std::byte> buffer = ReadAdapterList();
  if (buffer.empty()) return {};
  const auto* adapter = reinterpret_cast<const IP_ADAPTER_ADDRESSES*>(buffer.data());
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
  return SelectLocalNetworks(addresses);
}

}  // namespace tunnel
