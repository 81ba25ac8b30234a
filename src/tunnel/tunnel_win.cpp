#include <cstddef>
#include <memory>
#include <utility>

#include "platform/process_win.h"
#include "platform/windows_sdk.h"
#include "tunnel/adapter_list.h"
#include "tunnel/driver/windivert.h"
#include "tunnel/relay/udp_relay.h"
#include "tunnel/session.h"
// After the SDK, which it needs.
#include <iphlpapi.h>

namespace tunnel {
namespace {

// One buffer with all records, which point into it.
SystemList ReadAdapterList() {
  constexpr ULONG kFlags =
      GAA_FLAG_SKIP_ANYCAST | GAA_FLAG_SKIP_MULTICAST | GAA_FLAG_SKIP_DNS_SERVER;
  return ReadSystemList([](std::byte* buffer, std::uint32_t& sizeBytes) -> std::uint32_t {
    ULONG size = sizeBytes;
    // operator new aligns the buffer for any record.
    const ULONG error = ::GetAdaptersAddresses(
        AF_INET, kFlags, nullptr, reinterpret_cast<IP_ADAPTER_ADDRESSES*>(buffer), &size);
    sizeBytes = size;
    return error;
  });
}

NetworkAdapter ReadAdapter(const IP_ADAPTER_ADDRESSES& record) {
  NetworkAdapter adapter;
  if (record.FriendlyName != nullptr) adapter.name = record.FriendlyName;
  if (record.Description != nullptr) adapter.description = record.Description;
  adapter.type = record.IfType;
  const bool isUp = record.OperStatus == IfOperStatusUp;
  for (const auto* unicast = record.FirstUnicastAddress; unicast != nullptr;
       unicast = unicast->Next) {
    const SOCKADDR* address = unicast->Address.lpSockaddr;
    if (address == nullptr || address->sa_family != AF_INET) continue;
    const auto* ipv4 = reinterpret_cast<const sockaddr_in*>(address);
    adapter.addresses.push_back(
        {isUp, ::ntohl(ipv4->sin_addr.s_addr), unicast->OnLinkPrefixLength});
  }
  return adapter;
}

}  // namespace

AdapterList ListAdapters() {
  const SystemList list = ReadAdapterList();
  // Either failed or without any address; `error` distinguishes the two.
  if (list.bytes.empty()) return {{}, list.error};
  AdapterList found;
  const auto* record = reinterpret_cast<const IP_ADAPTER_ADDRESSES*>(list.bytes.data());
  for (; record != nullptr; record = record->Next) found.adapters.push_back(ReadAdapter(*record));
  return found;
}

LocalNetworks CollectLocalNetworks() {
  const AdapterList list = ListAdapters();
  if (list.error != 0) return {{}, list.error};
  std::vector<AdapterAddress> addresses;
  for (const NetworkAdapter& adapter : list.adapters) {
    addresses.insert(addresses.end(), adapter.addresses.begin(), adapter.addresses.end());
  }
  return {SelectLocalNetworks(addresses), 0};
}

std::unique_ptr<Tunnel> MakeRealTunnel() {
  SessionDeps deps;
  deps.loadDriver = LoadWinDivert;
  deps.collectLocalNetworks = CollectLocalNetworks;
  deps.makeUdpRelay = [](RelayHost& host) {
    return std::make_unique<SocketUdpRelay>(host, RealUdpNetwork());
  };
  deps.runHidden = platform::RunHidden;
  deps.tickMs = []() -> std::uint32_t { return ::GetTickCount(); };
  deps.pause = [](StopSignal& signal, std::chrono::milliseconds time) { signal.WaitFor(time); };
  return std::make_unique<Session>(std::move(deps));
}

}  // namespace tunnel
