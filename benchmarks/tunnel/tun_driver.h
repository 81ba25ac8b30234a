#pragma once

#include <memory>
#include <string>

#include "tunnel/driver/windivert.h"

namespace bench {

// Opens the TUN device `name` and returns a packet driver made of it, the only one in the process:
// receiving is one read, sending one write, checksums are written as the driver's own helper does.
// The device is routed exactly the session's networks, so filters are ignored. Closing does not
// wake a waiting receive: only the end of the process does.
std::unique_ptr<tunnel::WinDivertApi> MakeTunDriver(const std::string& name, int mtu);

}  // namespace bench
