#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <set>
#include <span>
#include <string>
#include <thread>
#include <vector>

#include "platform/mutex.h"
#include "tunnel/adapter_list.h"
#include "tunnel/driver/driver.h"
#include "tunnel/driver/packet_path.h"
#include "tunnel/driver/windivert.h"
#include "tunnel/packets/packet_queue.h"
#include "tunnel/packets/stop_signal.h"
#include "tunnel/relay/relay_link.h"
#include "tunnel/relay/relay_threads.h"
#include "tunnel/relay/udp_relay.h"
#include "tunnel/tunnel.h"

namespace tunnel {

// The session's surroundings besides TCP sockets and threads. Called on the threads that start and
// stop the tunnel; `tickMs` and `pause` also on its own, `collectLocalNetworks` on the relay watch.
struct SessionDeps {
  std::function<std::unique_ptr<WinDivertApi>()> loadDriver;  // throws as LoadWinDivert()
  std::function<LocalNetworks()> collectLocalNetworks;
  std::function<std::unique_ptr<UdpRelay>(RelayHost&)> makeUdpRelay;
  HiddenRunner runHidden;
  TickCounter tickMs = nullptr;  // as for WebSocketRelay
  // Waits until `time` has passed or the signal is set.
  std::function<void(StopSignal&, std::chrono::milliseconds time)> pause;
};

// The program's tunnel: turns a connection authorisation into a running tunnel and back.
//
// Threads: Start and Stop from any thread; they wait for each other. A Stop interrupts a Start in
//          progress by closing what it has opened; that Start then fails. Four threads run inside:
//          capture, relay, sender and relay watch; with the UDP relay's own, six.
// Locks:   the thread lock (start and stop) outermost; then the packet lock before the queue's;
//          relay, driver, status and observer locks are innermost: no other lock of the session
//          is taken under them.
// Errors:  Start throws std::runtime_error and leaves nothing running.
class Session final : public Tunnel, private RelayHost {
 public:
  explicit Session(SessionDeps deps);
  ~Session() override;  // stops a running tunnel; no other call may be in progress

  TunnelStarted Start(const TunnelRequest& request) override EXCLUDES(threadLock_);
  // Removes the driver's kernel service even if nothing was running. The text for that case claims
  // that the tunnel is running; this is the established wording.
  std::wstring Stop() override EXCLUDES(threadLock_);
  void StopForGood() override EXCLUDES(threadLock_);
  void LookAtNetwork() override { watch_.Request(); }
  void Observe(TunnelObserver observer) override EXCLUDES(observerLock_);
  [[nodiscard]] bool IsRunning() const noexcept override { return flags_.running; }
  [[nodiscard]] bool IsRelayConnected() const noexcept override { return link_.IsConnected(); }
  // Why the last reconnect failed; empty while connected.
  [[nodiscard]] std::string LastRelayError() const { return link_.LastError(); }

 private:
  // Derived from the request of a start.
  struct Plan {
    std::vector<RouteMapping> mappings;
    std::wstring filter;
    std::wstring filterWithoutBroadcasts;  // the same text unless discovery is on
    std::wstring relayUrl;
    UdpRelayRequest udpRequest;
  };

  [[nodiscard]] bool KeepGoing() const noexcept override { return flags_.KeepGoing(); }
  void HandleInbound(std::span<std::byte> packet) noexcept override;
  void Pause(std::chrono::milliseconds time) override { deps_.pause(signal_, time); }
  void OnLinkChanged(bool connected) override EXCLUDES(observerLock_);
  void OnReconnectFailed(const std::string& reason) override EXCLUDES(observerLock_);
  void OnUdpChanged(bool ready) override EXCLUDES(observerLock_);

  Plan MakePlan(const TunnelRequest& request) EXCLUDES(observerLock_);
  std::vector<RouteMapping> BuildMappings(const TunnelRequest& request) EXCLUDES(observerLock_);
  void Prepare(const TunnelRequest& request) REQUIRES(threadLock_);
  void Open() REQUIRES(threadLock_);
  void OpenDriver() REQUIRES(threadLock_);
  void StartThreads() REQUIRES(threadLock_);
  void RunCapture() noexcept EXCLUDES(observerLock_);
  void ThrowIfStopped() const;
  bool InterruptAll() noexcept;
  void EndThreads() noexcept REQUIRES(threadLock_);
  void TearDown() noexcept REQUIRES(threadLock_);
  void RemoveDriverService() noexcept;
  void SwitchDiscovery(bool connected) EXCLUDES(observerLock_);
  void WarnOfOverlaps(std::set<std::wstring>& warned) noexcept EXCLUDES(observerLock_);
  void Notice(const std::wstring& line) EXCLUDES(observerLock_);

  const SessionDeps deps_;
  TunnelFlags flags_;
  StopSignal signal_{flags_};
  Driver driver_;
  PacketQueue queue_;
  PacketPath path_{driver_, queue_};
  RelayLink link_;
  RelayWatch watch_{link_, signal_};
  Plan plan_;  // changes only while no thread of the tunnel runs
  platform::Mutex threadLock_;
  std::vector<std::thread> threads_ GUARDED_BY(threadLock_);
  platform::Mutex observerLock_;  // innermost
  TunnelObserver observer_ GUARDED_BY(observerLock_);
  std::unique_ptr<UdpRelay> udp_;  // last: its threads use the members above
};

}  // namespace tunnel
