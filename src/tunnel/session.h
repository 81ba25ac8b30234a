#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "platform/mutex.h"
#include "tunnel/driver.h"
#include "tunnel/packet_path.h"
#include "tunnel/packet_queue.h"
#include "tunnel/relay_link.h"
#include "tunnel/relay_worker.h"
#include "tunnel/stop_signal.h"
#include "tunnel/tunnel.h"
#include "tunnel/tunnel_flags.h"
#include "tunnel/udp_relay.h"

namespace tunnel {

// What the session takes from the world besides sockets and threads. All are called from the
// threads that start and stop the tunnel, `tickMs` and `pause` also from its own.
struct SessionDeps {
  std::function<std::unique_ptr<WinDivertApi>()> loadDriver;  // throws as LoadWinDivert()
  std::function<std::vector<Ipv4Network>()> collectLocalNetworks;
  std::function<std::unique_ptr<UdpRelay>(UdpRelayHooks)> makeUdpRelay;
  // As platform::RunHidden: starts a command and waits for its end up to `wait`.
  std::function<bool(const std::wstring& commandLine, std::chrono::milliseconds wait)> runHidden;
  std::function<std::uint32_t()> tickMs;  // may be empty, as in RelayHooks
  // Waits `time` unless the signal is set, at once or meanwhile.
  std::function<void(StopSignal&, std::chrono::milliseconds time)> pause;
};

// The tunnel of the whole run: turns a connection authorisation into a running tunnel and back.
//
// Threads: Start and Stop from any thread; they wait for each other. A Stop reaches a Start that is
//          under way: it closes what the Start has opened, and the Start fails. Three threads run
//          inside: capture, relay and sender; with the UDP relay's own, five.
// Locks:   the thread lock (start and stop) outermost; then the packet lock before the queue's;
//          relay, driver, status and observer locks are innermost: no other lock of the session
//          is taken under them.
// Errors:  Start throws std::runtime_error and leaves nothing running.
class Session final : public Tunnel {
 public:
  explicit Session(SessionDeps deps);
  ~Session() override;  // stops a running tunnel; no other call may be under way

  TunnelStarted Start(const TunnelRequest& request) override EXCLUDES(threadLock_);
  // Removes the driver's kernel service even if nothing was running. The text for that case says
  // that the tunnel is running; it is the established wording.
  std::wstring Stop() override EXCLUDES(threadLock_);
  void StopForGood() override EXCLUDES(threadLock_);
  void LookAtNetwork() override {}
  void Observe(TunnelObserver observer) override EXCLUDES(observerLock_);
  [[nodiscard]] bool IsRunning() const noexcept override { return flags_.running; }
  [[nodiscard]] bool IsRelayConnected() const noexcept override { return link_.IsConnected(); }
  // Why the last reconnect failed; empty while connected.
  [[nodiscard]] std::string LastRelayError() const { return link_.LastError(); }

 private:
  std::vector<RouteMapping> BuildMappings(const TunnelRequest& request) const;
  void Prepare(const TunnelRequest& request, const std::vector<RouteMapping>& mappings)
      REQUIRES(threadLock_);
  void Open(const TunnelRequest& request, const std::wstring& filter, const std::wstring& relayUrl)
      REQUIRES(threadLock_);
  void StartThreads(const std::wstring& relayUrl, const UdpRelayRequest& udpRequest)
      REQUIRES(threadLock_);
  void ThrowIfStopped() const;
  bool InterruptAll() noexcept;
  void EndThreads() noexcept REQUIRES(threadLock_);
  void TearDown() noexcept REQUIRES(threadLock_);
  void RemoveDriverService() noexcept;
  UdpRelayHooks HooksForUdp();
  RelayWork MakeRelayWork(const std::wstring& relayUrl, const UdpRelayRequest& udpRequest);

  const SessionDeps deps_;
  TunnelFlags flags_;
  StopSignal signal_{flags_};
  Driver driver_;
  PacketQueue queue_;
  PacketPath path_{driver_, queue_};
  RelayLink link_;
  platform::Mutex threadLock_;
  std::vector<std::thread> threads_ GUARDED_BY(threadLock_);
  platform::Mutex observerLock_;  // innermost
  TunnelObserver observer_ GUARDED_BY(observerLock_);
  std::unique_ptr<UdpRelay> udp_;  // set once, at construction; its threads use what is above
};

}  // namespace tunnel
