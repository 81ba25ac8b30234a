#pragma once

#include "tunnel/driver/driver.h"
#include "tunnel/driver/packet_path.h"
#include "tunnel/packets/tunnel_flags.h"

namespace tunnel {

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
