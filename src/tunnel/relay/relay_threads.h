#pragma once

#include <chrono>
#include <functional>
#include <string>

#include "platform/mutex.h"
#include "tunnel/packets/packet_queue.h"
#include "tunnel/packets/stop_signal.h"
#include "tunnel/relay/relay_link.h"
#include "tunnel/relay/udp_relay.h"

namespace tunnel {

// The relay thread's body: passes every message of the current relay to the host until the
// connection ends, reconnects, and so on until the tunnel stops. However many attempts an outage
// takes, it is reported as one loss; it ends with an attempt that brings up both the WebSocket and
// the UDP path.
class RelayWorker {
 public:
  // Keeps the references; all must outlive the worker.
  RelayWorker(RelayHost& host, RelayLink& link, UdpRelay& udp, std::wstring relayUrl,
              UdpRelayRequest udpRequest)
      : host_(host),
        link_(link),
        udp_(udp),
        relayUrl_(std::move(relayUrl)),
        udpRequest_(std::move(udpRequest)) {}

  void Run() noexcept;

 private:
  void ReceiveUntilLost();
  // Waits, then makes one attempt. The wait starts at 1 s, doubles with each failure up to 10 s,
  // and returns to 1 s after a success. True when connected.
  bool Reconnect();
  void DropHalfOpen();
  void ReportFailure(const std::string& reason);

  RelayHost& host_;
  RelayLink& link_;
  UdpRelay& udp_;
  const std::wstring relayUrl_;
  const UdpRelayRequest udpRequest_;
  std::chrono::seconds reconnectDelay_{1};
  std::string reportedReason_;  // since the loss
};

// The sender thread's body: sends the queue's packets to the relay until the queue is stopped.
// Packets of at most kMaxUdpPacketBytes use UDP while it is ready; larger packets, and those that
// UDP refuses, use the WebSocket, in order, each as a frame of its own, and a whole batch in one
// send. Without a connection packets are lost, as on any network. A failed send drops the relay,
// which the relay thread then replaces.
void SenderLoop(const TunnelFlags& flags, PacketQueue& queue, RelayLink& link,
                UdpRelay& udp) noexcept;

// Checks the relay when there is reason to doubt it, as after a sleep or a change of addresses:
// pings it, and drops the connection if nothing arrives within 1.5 s, so that the reconnect starts
// now and not after the network's own time-outs. An attempt in progress is restarted, and a wait
// before an attempt is cut short.
//
// Threads: Run() on a thread of its own between Start() and Stop(); the rest on any.
class RelayWatch {
 public:
  // Keeps both references; they must outlive it.
  RelayWatch(RelayLink& link, StopSignal& signal) : link_(link), signal_(signal) {}

  // Call before the thread starts; discards earlier requests.
  void Start() noexcept EXCLUDES(lock_);
  // Makes Run() return soon.
  void Stop() noexcept EXCLUDES(lock_);
  // Triggers one check by Run(). Requests made before it starts count as one.
  void Request() noexcept EXCLUDES(lock_);

  // The thread's body: at each request calls `checkNetworks`, which must not throw, and checks the
  // relay.
  void Run(const std::function<void()>& checkNetworks) noexcept EXCLUDES(lock_);

 private:
  bool AwaitRequest() EXCLUDES(lock_);
  void CheckRelay();
  bool Answers(WebSocketRelay& relay) EXCLUDES(lock_);

  RelayLink& link_;
  StopSignal& signal_;
  platform::Mutex lock_;
  platform::Condition changed_;
  bool isRequested_ GUARDED_BY(lock_) = false;
  bool isStopped_ GUARDED_BY(lock_) = true;
};

}  // namespace tunnel
