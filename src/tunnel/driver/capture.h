#pragma once

#include <span>
#include <string>

#include "tunnel/driver/driver.h"
#include "tunnel/driver/packet_path.h"
#include "tunnel/packets/routes.h"
#include "tunnel/packets/stop_signal.h"

namespace tunnel {

// The packet driver's filter text: which outbound packets the tunnel takes. Pure functions.

// "(ip.DstAddr >= 172.31.0.0 and ip.DstAddr <= 172.31.0.255)", over the mapped network.
std::wstring RouteClause(const RouteMapping& mapping);

// Outbound ICMP, TCP and UDP to any mapped network, except what another driver injected; with
// `discoveryMode` also UDP to 255.255.255.255. `mappings` is not empty. How many clauses fit is the
// driver's to say: it refuses the filter when opened.
std::wstring BuildCaptureFilter(std::span<const RouteMapping> mappings, bool discoveryMode);

enum class CaptureEnd {
  Stopped,       // by the flags
  ByFragment,    // the driver has no checksums for a captured first fragment
  ByOtherError,  // of the driver, or short memory
};

// The capture thread's body: receives packets until the flags end it, hands tunnel packets to the
// packet path and puts every other back unchanged. A failed receive is passed over: closing the
// driver's handles, after the flags are set, is what wakes and ends it. An error of the driver ends
// the loop and leaves the tunnel alone.
CaptureEnd CaptureLoop(const TunnelFlags& flags, Driver& driver, PacketPath& path) noexcept;

}  // namespace tunnel
