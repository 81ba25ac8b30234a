#pragma once

#include <functional>
#include <string>
#include <vector>

namespace tunnel {

// What a connection authorisation gives the tunnel to work with.
struct TunnelRequest {
  std::wstring serverUrl;
  std::wstring connectionId;
  std::wstring engineerId;
  std::wstring assignedAddress;      // dotted IPv4, perhaps with "/prefix"
  std::vector<std::wstring> routes;  // CIDR texts; unusable ones are dropped
  bool discoveryMode = false;
};

struct TunnelStarted {
  std::wstring text;                       // the line for the engineer's log
  std::vector<std::wstring> accessRoutes;  // CIDR texts of the networks as this computer uses them
  std::wstring mappingText;                // one line a route, CRLF between; for display
};

// The tunnel as the rest of the program sees it. Session is the real one.
//
// Threads: Start and Stop may be called from any thread and wait for each other; the two flags are
//          atomic and may be read at any moment.
// Errors:  Start throws std::runtime_error with a fixed English text and then leaves nothing
//          running.
class Tunnel {
 public:
  virtual ~Tunnel() = default;
  virtual TunnelStarted Start(const TunnelRequest& request) = 0;
  // Returns the line for the engineer's log.
  virtual std::wstring Stop() = 0;
  // `changed` is called from a thread of the tunnel whenever a running tunnel has lost its relay or
  // found it again; it must not throw, wait or call the tunnel's Start or Stop. Set it before the
  // first start.
  virtual void ObserveLink(std::function<void()> changed) = 0;
  // The same for the UDP path: `changed` is told whether small packets go by it from now on or
  // over the WebSocket; first by the first start.
  virtual void ObserveUdp(std::function<void(bool ready)> changed) = 0;
  [[nodiscard]] virtual bool IsRunning() const noexcept = 0;
  [[nodiscard]] virtual bool IsRelayConnected() const noexcept = 0;
};

}  // namespace tunnel
