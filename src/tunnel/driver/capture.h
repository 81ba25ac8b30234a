#pragma once

#include <span>
#include <string>

#include "tunnel/driver/driver.h"
#include "tunnel/driver/packet_path.h"
#include "tunnel/packets/routes.h"
#include "tunnel/packets/stop_signal.h"

namespace tunnel {

// One clause of the filter, over the mapped network:
// "(ip.DstAddr >= 172.31.0.0 and ip.DstAddr <= 172.31.0.255)".
std::wstring RouteClause(const RouteMapping& mapping);

// The packet driver's filter text: outbound ICMP, TCP and UDP to any mapped network, except packets
// injected by another driver; with `discoveryMode` also UDP to 255.255.255.255. `mappings` must not
// be empty. The driver refuses to open a filter with too many clauses. Pure.
std::wstring BuildCaptureFilter(std::span<const RouteMapping> mappings, bool discoveryMode);

enum class CaptureEnd {
  Stopped,       // by the flags
  ByFragment,    // the driver computes no checksums for a captured first fragment
  ByOtherError,  // from the driver, or out of memory
};

// The capture thread's body: receives packets until the flags end it, passes tunnel packets to the
// packet path and puts all others back unchanged. To end it, set the flags, then close the driver's
// handles; failed receives are retried until then. A driver error ends the loop but not the tunnel.
CaptureEnd CaptureLoop(const TunnelFlags& flags, Driver& driver, PacketPath& path) noexcept;

}  // namespace tunnel
