#pragma once

#include <span>
#include <string>

#include "tunnel/packets/routes.h"

// The packet driver's filter text: which outbound packets the tunnel takes. Pure functions.
namespace tunnel {

// "(ip.DstAddr >= 172.31.0.0 and ip.DstAddr <= 172.31.0.255)", over the mapped network.
std::wstring RouteClause(const RouteMapping& mapping);

// Outbound ICMP, TCP and UDP to any mapped network, except what another driver injected; with
// `discoveryMode` also UDP to 255.255.255.255. `mappings` is not empty. How many clauses fit is the
// driver's to say: it refuses the filter when opened.
std::wstring BuildCaptureFilter(std::span<const RouteMapping> mappings, bool discoveryMode);

}  // namespace tunnel
