#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace tunnel {

// The tunnel's part of a connection authorisation.
struct TunnelRequest {
  std::wstring serverUrl;
  std::wstring connectionId;
  std::wstring engineerId;
  std::wstring assignedAddress;      // dotted IPv4, perhaps with "/prefix"
  std::vector<std::wstring> routes;  // CIDR texts; unusable ones are ignored
  bool discoveryMode = false;
};

struct TunnelStarted {
  std::wstring text;                       // the line for the engineer's log
  std::vector<std::wstring> accessRoutes;  // CIDR texts of the networks as this computer uses them
  std::wstring mappingText;                // one line a route, CRLF between; for display
};

// Receives a tunnel's events, one call at a time, on the tunnel's threads or the starting one. A
// callback must not throw, block or call the tunnel's Start or Stop.
struct TunnelObserver {
  // The relay was lost (false) or is back (true), in order. IsRelayConnected() may already have
  // changed again.
  std::function<void(bool connected)> linkChanged = [](bool) {};
  // A reconnect failed, for the first time or for a new reason; English text.
  std::function<void(const std::string& reason)> reconnectFailed = [](const std::string&) {};
  // From now on small packets use UDP (true) or the WebSocket; first reported by the first start.
  std::function<void(bool ready)> udpChanged = [](bool) {};
  // A line for the engineer's log.
  std::function<void(const std::wstring& line)> notice = [](const std::wstring&) {};
};

// The tunnel as seen by the rest of the program; Session implements it.
//
// Threads: Start and Stop may be called from any thread and wait for each other; the two flags may
//          be read at any time.
// Errors:  Start throws std::runtime_error with a fixed English text and then leaves nothing
//          running.
class Tunnel {
 public:
  virtual ~Tunnel() = default;
  virtual TunnelStarted Start(const TunnelRequest& request) = 0;
  // Returns the line for the engineer's log.
  virtual std::wstring Stop() = 0;
  // For the end of the program: a start in progress fails, and so does every later one.
  virtual void StopForGood() = 0;
  // Call after a wake-up or a change of this computer's addresses. Returns at once.
  virtual void LookAtNetwork() = 0;
  // Call before the first start.
  virtual void Observe(TunnelObserver observer) = 0;
  [[nodiscard]] virtual bool IsRunning() const noexcept = 0;
  [[nodiscard]] virtual bool IsRelayConnected() const noexcept = 0;
};

// The program's tunnel: a Session on the real driver, adapters and commands. Windows only; any
// thread.
std::unique_ptr<Tunnel> MakeRealTunnel();

}  // namespace tunnel
