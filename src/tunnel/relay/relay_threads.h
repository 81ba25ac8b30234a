#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <span>
#include <string>

#include "platform/mutex.h"
#include "tunnel/packets/packet_queue.h"
#include "tunnel/packets/stop_signal.h"
#include "tunnel/relay/relay_link.h"
#include "tunnel/relay/udp_relay.h"

namespace tunnel {

// What the relay thread works with; all of it outlives the thread.
struct RelayWork {
  const TunnelFlags& flags;
  RelayLink& link;
  UdpRelay& udp;
  std::wstring relayUrl;
  UdpRelayRequest udpRequest;
  std::function<void(std::span<std::byte>)> inbound;     // one packet; may throw
  std::function<void(std::chrono::milliseconds)> pause;  // a stop ends it at once
  // Both as TunnelObserver says.
  std::function<void(bool connected)> linkChanged;
  std::function<void(const std::string& reason)> reconnectFailed;
};

// The relay thread's body: hands every message of the current relay to the inbound path until the
// connection ends, then connects anew, and so on until the tunnel stops. An error of the inbound
// path costs that packet only. However many attempts an outage takes, it is one loss; it ends with
// an attempt that brings both the WebSocket and the UDP path up.
class RelayWorker {
 public:
  explicit RelayWorker(RelayWork work) : work_(std::move(work)) {}
  void Run() noexcept;

 private:
  void ReceiveUntilLost();
  // One wait and one attempt; the wait is 1 s at first, doubles with each failure up to 10 s, and
  // is 1 s again after a success. True when connected.
  bool Reconnect();

  void DropHalfMade();
  void TellFailure(const std::string& reason);

  const RelayWork work_;
  std::chrono::seconds reconnectDelay_{1};
  std::string toldReason_;  // since the loss
};

// The sender thread's body: takes what waits in the queue until it is stopped and sends it to the
// relay. Packets of at most kMaxUdpPacketBytes go by UDP while that is ready, and by the WebSocket
// when UDP refuses them; larger ones always by the WebSocket. What goes by the WebSocket goes in
// order, each packet as a frame of its own, and what waited together in one send. Without a
// connection a packet is lost here, as on any network. A send that fails drops the relay, which the
// relay thread then replaces.
void SenderLoop(const TunnelFlags& flags, PacketQueue& queue, RelayLink& link,
                UdpRelay& udp) noexcept;

// Looks at the relay when there is reason to doubt it, as after the computer's sleep or a change of
// its addresses: pings it, and when nothing comes back within 1.5 s, drops the connection, so that
// it is made anew at once and not after the network's own time-outs. A connection that is being
// made is begun afresh, and a wait before an attempt is cut short.
//
// Threads: Run() on a thread of its own between Start() and Stop(); the rest by any.
class RelayWatch {
 public:
  // Keeps both references; they must outlive it.
  RelayWatch(RelayLink& link, StopSignal& signal) : link_(link), signal_(signal) {}

  // Before the thread begins; forgets what was asked before.
  void Start() noexcept EXCLUDES(lock_);
  // Ends Run() soon.
  void Stop() noexcept EXCLUDES(lock_);
  // Has Run() look once; requests that come before it has begun count as one.
  void Request() noexcept EXCLUDES(lock_);

  // The thread's body: at each request calls `alsoLook`, which must not throw, and looks at the
  // relay.
  void Run(const std::function<void()>& alsoLook) noexcept EXCLUDES(lock_);

 private:
  bool AwaitRequest() EXCLUDES(lock_);
  void LookAtRelay();
  bool Answers(WebSocketRelay& relay) EXCLUDES(lock_);

  RelayLink& link_;
  StopSignal& signal_;
  platform::Mutex lock_;
  platform::Condition changed_;
  bool isRequested_ GUARDED_BY(lock_) = false;
  bool isStopped_ GUARDED_BY(lock_) = true;
};

}  // namespace tunnel
