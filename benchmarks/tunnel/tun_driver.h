#pragma once

#include <memory>
#include <string>

#include "tunnel/driver/windivert.h"

namespace bench {

// Opens the TUN device `name` and returns a packet driver made of it, the only one in the process:
// receiving is one read, sending one write, checksums are written as the driver's own helper does.
// What the device is routed is what the session asked for, so filters are not looked at. A receive
// that waits is not woken by closing: the process ends with it.
std::unique_ptr<tunnel::WinDivertApi> MakeTunDriver(const std::string& name, int mtu);

}  // namespace bench
