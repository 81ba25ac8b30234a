#pragma once

#include <memory>

#include "tunnel/tunnel.h"

namespace tunnel {

// The tunnel of the program: a Session on the packet driver, the adapters and the commands of this
// computer. Any thread.
std::unique_ptr<Tunnel> MakeRealTunnel();

}  // namespace tunnel
