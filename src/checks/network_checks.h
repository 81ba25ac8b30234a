#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "checks/check.h"
#include "checks/system_services.h"
#include "tunnel/adapter_list.h"
#include "tunnel/packets/ipv4.h"

// This computer's networks, its proxies and the network software on it. What judges is pure; what
// fetches the facts is Windows only.
namespace checks {

struct NetworkFacts {
  tunnel::AdapterList adapters;
  std::vector<tunnel::Ipv4Network> routes;  // of the whole computer
  std::uint32_t routesError = 0;
  std::vector<std::wstring> siteNetworks;  // of all profiles, CIDR texts
};
// Which networks and routes reach into 172.31.0.0/16, from which the tunnel gives substitutes, and
// which sites will need substitutes here.
Outcome JudgeNetworks(const NetworkFacts& facts);
// All but the profiles' networks.
NetworkFacts ReadNetworkFacts();

struct ProxyFacts {
  std::uint32_t systemError = 0;  // why WinHTTP's own settings cannot be read
  std::wstring systemProxy;       // WinHTTP's, which this program's requests use; empty: none
  std::wstring systemBypass;
  std::uint32_t userError = 0;
  bool findsItself = false;  // the user's proxy is looked for in the network
  std::wstring script;       // address of the user's PAC file
  std::wstring userProxy;
  std::wstring userBypass;
};
Outcome JudgeProxies(const ProxyFacts& facts);
ProxyFacts ReadProxyFacts();

// Other users of the packet driver, VPNs and capture drivers. What is there is worth knowing and no
// fault by itself.
Outcome JudgeNeighbours(const ServiceList& services, const tunnel::AdapterList& adapters);

}  // namespace checks
