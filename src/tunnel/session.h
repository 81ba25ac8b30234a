#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <set>
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

// What the session takes from the world besides sockets and threads. All are called from the
// threads that start and stop the tunnel, `tickMs` and `pause` also from its own.
struct SessionDeps {
  std::function<std::unique_ptr<WinDivertApi>()> loadDriver;  // throws as LoadWinDivert()
  std::function<LocalNetworks()> collectLocalNetworks;
  std::function<std::unique_ptr<UdpRelay>(UdpRelayHooks)> makeUdpRelay;
  HiddenRunner runHidden;
  std::function<std::uint32_t()> tickMs;  // may be empty, as in RelayHooks
  // Waits `time` unless the signal is set, at once or meanwhile.
  std::function<void(StopSignal&, std::chrono::milliseconds time)> pause;
};

// The tunnel of the whole run: turns a connection authorisation into a running tunnel and back.
//
// Threads: Start and Stop from any thread; they wait for each other. A Stop reaches a Start that is
//          under way: it closes what the Start has opened, and the Start fails. Four threads run
//          inside: capture, relay, sender and relay watch; with the UDP relay's own, six.
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
  void LookAtNetwork() override { watch_.Request(); }
  void Observe(TunnelObserver observer) override EXCLUDES(observerLock_);
  [[nodiscard]] bool IsRunning() const noexcept override { return flags_.running; }
  [[nodiscard]] bool IsRelayConnected() const noexcept override { return link_.IsConnected(); }
  // Why the last reconnect failed; empty while connected.
  [[nodiscard]] std::string LastRelayError() const { return link_.LastError(); }

 private:
  // What a start has worked out of its request.
  struct Plan {
    std::vector<RouteMapping> mappings;
    std::wstring filter;
    std::wstring filterWithoutBroadcasts;  // the same text unless discovery is on
    std::wstring relayUrl;
    UdpRelayRequest udpRequest;
  };

  std::vector<RouteMapping> BuildMappings(const TunnelRequest& request) EXCLUDES(observerLock_);
  void Prepare(const TunnelRequest& request, const std::vector<RouteMapping>& mappings)
      REQUIRES(threadLock_);
  void Open(const Plan& plan) REQUIRES(threadLock_);
  void OpenDriver(const std::wstring& filter) REQUIRES(threadLock_);
  void StartThreads(const Plan& plan) REQUIRES(threadLock_);
  void RunCapture() noexcept EXCLUDES(observerLock_);
  void ThrowIfStopped() const;
  bool InterruptAll() noexcept;
  void EndThreads() noexcept REQUIRES(threadLock_);
  void TearDown() noexcept REQUIRES(threadLock_);
  void RemoveDriverService() noexcept;
  UdpRelayHooks HooksForUdp();
  RelayWork MakeRelayWork(const Plan& plan);
  void OnLinkChanged(bool connected, const Plan& plan) EXCLUDES(observerLock_);
  void SwitchDiscovery(bool connected, const Plan& plan) EXCLUDES(observerLock_);
  void WarnOfOverlaps(const Plan& plan, std::set<std::wstring>& told) noexcept
      EXCLUDES(observerLock_);
  void Notice(const std::wstring& line) EXCLUDES(observerLock_);

  const SessionDeps deps_;
  TunnelFlags flags_;
  StopSignal signal_{flags_};
  Driver driver_;
  PacketQueue queue_;
  PacketPath path_{driver_, queue_};
  RelayLink link_;
  RelayWatch watch_{link_, signal_};
  platform::Mutex threadLock_;
  std::vector<std::thread> threads_ GUARDED_BY(threadLock_);
  platform::Mutex observerLock_;  // innermost
  TunnelObserver observer_ GUARDED_BY(observerLock_);
  std::unique_ptr<UdpRelay> udp_;  // set once, at construction; its threads use what is above
};

}  // namespace tunnel
