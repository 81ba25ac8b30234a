#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "checks/check.h"
#include "checks/system_services.h"
#include "tunnel/adapter_list.h"
#include "tunnel/packets/ipv4.h"

// This computer's networks, proxies and network software. Judge functions are pure; Read functions
// are Windows only.
namespace checks {

struct NetworkFacts {
  tunnel::AdapterList adapters;
  std::vector<tunnel::Ipv4Network> routes;  // of the whole computer
  std::uint32_t routesError = 0;
  std::vector<std::wstring> siteNetworks;  // of all profiles, CIDR texts
};
// Finds networks and routes that overlap 172.31.0.0/16, the tunnel's substitute addresses, and
// sites that need substitutes here.
Outcome JudgeNetworks(const NetworkFacts& facts);
// Leaves siteNetworks empty.
NetworkFacts ReadNetworkFacts();

struct ProxyFacts {
  std::uint32_t systemError = 0;  // of reading WinHTTP's settings
  std::wstring systemProxy;       // WinHTTP's, for this program's requests; empty: none
  std::wstring systemBypass;
  std::uint32_t userError = 0;
  bool isAutoDetected = false;  // the network announces the user's proxy
  std::wstring script;          // address of the user's PAC file
  std::wstring userProxy;
  std::wstring userBypass;
};
Outcome JudgeProxies(const ProxyFacts& facts);
ProxyFacts ReadProxyFacts();

// Lists VPNs, capture drivers and other users of the packet driver, none of them a fault by itself.
Outcome JudgeNeighbours(const ServiceList& services, const tunnel::AdapterList& adapters);

}  // namespace checks
