#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <span>
#include <string>

#include "tunnel/packets/tunnel_flags.h"
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

}  // namespace tunnel
