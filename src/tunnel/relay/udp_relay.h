#pragma once

#include <cstddef>
#include <functional>
#include <span>
#include <string>

namespace tunnel {

// What the tunnel gives the path at its making; all may be called from any thread, never throw and
// outlive the path.
struct UdpRelayHooks {
  // Takes one packet that came from the relay; may change it in place and read
  // kReadableBehindPacket bytes behind it.
  std::function<void(std::span<std::byte>)> inbound;
  // False as soon as the tunnel stops; to be asked before each wait and each attempt.
  std::function<bool()> keepGoing;
  // Told at the first start whether the path is ready, then at each change, one call at a time. A
  // close is no change: what was told stays until the next start.
  std::function<void(bool ready)> readyChanged;
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
// Threads: StartUdpRelay() and Join() by the thread that starts, reconnects or stops the tunnel,
//          one at a time; everything else by any thread at any moment. An implementation runs its
//          own receiving and keep-alive threads, from the start until Close(), and calls the
//          inbound handler that it was made with from the receiving one.
// Errors:  StartUdpRelay() throws std::runtime_error with a fixed text, which fails the tunnel's
//          start or reconnect.
class UdpRelay {
 public:
  virtual ~UdpRelay() = default;
  // Opens the path. A relay that does not answer is no error; the path is then not ready.
  virtual void StartUdpRelay(const UdpRelayRequest& request) = 0;
  // Closes the sockets, so that a start under way and the threads end soon. Waits for nothing; does
  // nothing when not started.
  virtual void Close() noexcept = 0;
  // Waits for the threads of a path that Close() has closed.
  virtual void Join() noexcept = 0;
  [[nodiscard]] virtual bool IsReady() const noexcept = 0;
  // Sends one packet of at most kMaxUdpPacketBytes; false when it could not be handed over.
  virtual bool SendUdpPacket(std::span<const std::byte> packet) = 0;
};

}  // namespace tunnel
