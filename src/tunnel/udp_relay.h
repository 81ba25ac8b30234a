#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <span>
#include <string>

namespace tunnel {

// The longest packet that goes by UDP: with IP, UDP and relay headers it still fits an Ethernet
// frame of 1400 bytes, so it is not cut on the way.
inline constexpr std::size_t kMaxUdpPacketBytes = 1330;

// What the tunnel gives the path at its making; both may be called from any thread, never throw and
// outlive the path.
struct UdpRelayHooks {
  // Takes one packet that came from the relay; may change it in place.
  std::function<void(std::span<std::byte>)> inbound;
  // False as soon as the tunnel stops; to be asked before each wait and each attempt.
  std::function<bool()> keepGoing;
};

// Whose tunnel it is, as the relay has to know.
struct UdpRelayRequest {
  std::wstring serverUrl;
  std::wstring connectionId;
  std::wstring engineerId;
};

// The tunnel's path for small packets beside the WebSocket. While it is not ready, everything goes
// over the WebSocket.
//
// Threads: Start() and Join() by the thread that starts, reconnects or stops the tunnel, one at a
//          time; everything else by any thread at any moment. An implementation runs its own
//          receiving and keep-alive threads, from Start() until Close(), and calls the inbound
//          handler that it was made with from the receiving one.
// Errors:  Start() throws std::runtime_error with a fixed text, which fails the tunnel's start or
//          reconnect.
class UdpRelay {
 public:
  virtual ~UdpRelay() = default;
  // Opens the path. A relay that does not answer is no error; the path is then not ready.
  virtual void Start(const UdpRelayRequest& request) = 0;
  // Closes the sockets, so that a Start() under way and the threads end soon. Waits for nothing;
  // does nothing when not started.
  virtual void Close() noexcept = 0;
  // Waits for the threads of a path that Close() has closed.
  virtual void Join() noexcept = 0;
  [[nodiscard]] virtual bool IsReady() const noexcept = 0;
  // Sends one packet of at most kMaxUdpPacketBytes; false when it could not be handed over.
  virtual bool Send(std::span<const std::byte> packet) = 0;
};

// A path that opens nothing and never becomes ready: every packet goes over the WebSocket.
std::unique_ptr<UdpRelay> MakeIdleUdpRelay(const UdpRelayHooks& hooks);

}  // namespace tunnel
