#pragma once

#include <atomic>

namespace tunnel {

// What every loop of the tunnel looks at before it blocks. Starting clears `stopping` and sets
// `running`; stopping does the reverse before it closes handles and sockets to wake the loops.
struct TunnelFlags {
  std::atomic<bool> running{false};
  std::atomic<bool> stopping{false};

  [[nodiscard]] bool KeepGoing() const noexcept { return running && !stopping; }
};

}  // namespace tunnel
