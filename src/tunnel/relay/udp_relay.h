#pragma once

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <thread>
#include <vector>

#include "platform/mutex.h"
#include "tunnel/relay/udp_datagram.h"

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

// The path's time and network.
struct UdpRelayDeps {
  DatagramSocketOpener openSocket;
  std::function<std::chrono::milliseconds()> now;  // of a steady clock; any thread
  // Waits on the condition for at most that time; may return early.
  std::function<void(platform::Condition&, platform::Mutex&, std::chrono::milliseconds)> wait;
};

// The real sockets and the system's clock.
UdpRelayDeps RealUdpRelayDeps();

// The UDP path to the relay. A start says hello up to four times and waits 900 ms for each answer;
// from then on a hello goes out every 15 s. An acknowledgement of it brings the token that every
// packet bears, and makes the path ready; 45 s without one, or a hello that cannot be sent, end
// that until the next acknowledgement.
//
// Threads and errors as UdpRelay says; the texts are RelayDatagramSocket's.
// Locks:   the UDP lock is innermost; no call into the network is made under it.
class SocketUdpRelay final : public UdpRelay {
 public:
  SocketUdpRelay(UdpRelayHooks hooks, UdpRelayDeps deps);
  ~SocketUdpRelay() override;

  void StartUdpRelay(const UdpRelayRequest& request) override EXCLUDES(udpLock_);
  void Close() noexcept override EXCLUDES(udpLock_);
  void Join() noexcept override;
  [[nodiscard]] bool IsReady() const noexcept override;
  bool SendUdpPacket(std::span<const std::byte> packet) override EXCLUDES(udpLock_);

 private:
  using Hello = std::shared_ptr<const std::vector<std::byte>>;

  std::optional<std::uint64_t> SayHello(DatagramSocket& socket, const Hello& hello);
  std::optional<std::uint64_t> AwaitAcknowledgement(DatagramSocket& socket);
  bool MayReceiveAgain(int error) EXCLUDES(udpLock_);
  void Acknowledge(std::uint64_t token);
  void ReceiveLoop(DatagramSocket& socket) noexcept;
  void Take(std::span<std::byte> datagram);
  void KeepAliveLoop() noexcept;
  bool SendHello();
  bool HasRecentAcknowledgement() const;
  void LoseIfSilent() EXCLUDES(reportLock_, udpLock_);
  void SetReady(bool ready) EXCLUDES(reportLock_, udpLock_);
  void TellReady(bool ready) REQUIRES(reportLock_) EXCLUDES(udpLock_);
  // False when the path was closed, at once or meanwhile.
  bool WaitOut(std::chrono::milliseconds time) EXCLUDES(udpLock_);

  const UdpRelayHooks hooks_;
  const UdpRelayDeps deps_;

  platform::Mutex udpLock_;
  platform::Condition closed_;
  DatagramSocketPointer socket_ GUARDED_BY(udpLock_);  // null: closed
  Hello hello_ GUARDED_BY(udpLock_);

  std::atomic<std::uint64_t> token_{0};  // 0: none
  std::atomic<std::chrono::milliseconds> lastAcknowledgement_{std::chrono::milliseconds(0)};
  std::atomic<bool> ready_{false};
  platform::Mutex reportLock_;  // one report after the other
  std::optional<bool> reported_ GUARDED_BY(reportLock_);

  std::vector<std::thread> threads_;  // of the thread that starts and joins
};

}  // namespace tunnel
