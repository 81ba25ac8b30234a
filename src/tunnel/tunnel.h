#pragma once

#include <functional>
#include <memory>
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

// Who is told what happens to a tunnel, from its own threads or the one that starts it, one call at
// a time. None may throw, wait or call the tunnel's Start or Stop.
struct TunnelObserver {
  // The relay was lost (false) or found again (true), in the order in which it happened.
  // IsRelayConnected() may have moved on by the time that the report is read.
  std::function<void(bool connected)> linkChanged = [](bool) {};
  // An attempt to find it again has failed, for another reason than the one before or as the first;
  // English text.
  std::function<void(const std::string& reason)> reconnectFailed = [](const std::string&) {};
  // Whether small packets go by UDP from now on or over the WebSocket; first told by the first
  // start.
  std::function<void(bool ready)> udpChanged = [](bool) {};
  // A line for the engineer's log.
  std::function<void(const std::wstring& line)> notice = [](const std::wstring&) {};
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
  // Stops for good, as the program ends: a start under way fails, and every later one.
  virtual void StopForGood() = 0;
  // The computer has woken, or its addresses have changed. Returns at once.
  virtual void LookAtNetwork() = 0;
  // To be set before the first start.
  virtual void Observe(TunnelObserver observer) = 0;
  [[nodiscard]] virtual bool IsRunning() const noexcept = 0;
  [[nodiscard]] virtual bool IsRelayConnected() const noexcept = 0;
};

// The tunnel of the program: a Session on the packet driver, the adapters and the commands of this
// computer. Any thread.
std::unique_ptr<Tunnel> MakeRealTunnel();

}  // namespace tunnel
