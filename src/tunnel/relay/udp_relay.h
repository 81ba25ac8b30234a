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

// The owner of the relay's threads, as they see it: the session. It must outlive them.
//
// Threads: any of the relay's; reports of one kind come one at a time.
class RelayHost {
 public:
  virtual ~RelayHost() = default;
  // False once the tunnel stops; checked before each wait and each attempt.
  [[nodiscard]] virtual bool KeepGoing() const noexcept = 0;
  // Takes one packet from the relay. May change it in place and read kReadableBehindPacket bytes
  // behind it. A packet that fails costs only itself.
  virtual void HandleInbound(std::span<std::byte> packet) noexcept = 0;
  // The wait before a reconnect; a stop ends it early.
  virtual void Pause(std::chrono::milliseconds time) = 0;
  virtual void OnLinkChanged(bool connected) = 0;
  virtual void OnReconnectFailed(const std::string& reason) = 0;
  // Reported by the first start, then at each change. Closing the path reports nothing; the last
  // report stands until the next start.
  virtual void OnUdpChanged(bool ready) = 0;
};

// Identifies the tunnel to the relay.
struct UdpRelayRequest {
  std::wstring serverUrl;
  std::wstring connectionId;
  std::wstring engineerId;
};

// The tunnel's path for small packets beside the WebSocket, which carries everything while this
// path is not ready.
//
// Threads: StartUdpRelay() and Join() on the thread that starts, reconnects or stops the tunnel,
//          one at a time; the rest on any thread at any time. An implementation runs its own
//          receiving and keep-alive threads from the start until Close().
// Errors:  StartUdpRelay() throws std::runtime_error with a fixed text, which fails the tunnel's
//          start or reconnect.
class UdpRelay {
 public:
  virtual ~UdpRelay() = default;
  // Opens the path. A silent relay is not an error; the path is then not ready.
  virtual void StartUdpRelay(const UdpRelayRequest& request) = 0;
  // Closes the socket, so that a start in progress and the threads end soon. Does not wait; does
  // nothing if not started.
  virtual void Close() noexcept = 0;
  // Waits for the threads; call Close() first.
  virtual void Join() noexcept = 0;
  [[nodiscard]] virtual bool IsReady() const noexcept = 0;
  // Sends one packet of at most kMaxUdpPacketBytes; false if the network did not take it.
  virtual bool SendUdpPacket(std::span<const std::byte> packet) = 0;
};

// The UDP path's sockets and clock.
class UdpNetwork {
 public:
  virtual ~UdpNetwork() = default;
  virtual DatagramSocketPointer OpenSocket(const std::wstring& serverUrl,
                                           std::chrono::milliseconds timeout,
                                           const std::function<bool()>& isCancelled) = 0;
  // A steady clock; any thread.
  [[nodiscard]] virtual std::chrono::milliseconds Now() const = 0;
  // Waits for the condition for at most `time`; may return early.
  virtual void Wait(platform::Condition& condition, platform::Mutex& mutex,
                    std::chrono::milliseconds time) REQUIRES(mutex) = 0;
};

// Real sockets and the system's clock.
UdpNetwork& RealUdpNetwork();

// The UDP path over a datagram socket. A start sends up to four hellos and waits 900 ms for each
// answer; afterwards it sends a hello every 15 s. Each acknowledgement carries the token for all
// packets and makes the path ready. After 45 s without one, or when a hello cannot be sent, the
// path is not ready until the next acknowledgement.
//
// Threads and errors as in UdpRelay; the texts are RelayDatagramSocket's.
// Locks:   the UDP lock is innermost; no call into the network is made under it.
class SocketUdpRelay final : public UdpRelay {
 public:
  SocketUdpRelay(RelayHost& host, UdpNetwork& network) : host_(host), network_(network) {}
  ~SocketUdpRelay() override;
  SocketUdpRelay(const SocketUdpRelay&) = delete;
  SocketUdpRelay& operator=(const SocketUdpRelay&) = delete;

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
  void HandleDatagram(std::span<std::byte> datagram);
  void KeepAliveLoop() noexcept;
  bool SendHello();
  bool HasRecentAcknowledgement() const;
  void LoseIfSilent() EXCLUDES(reportLock_, udpLock_);
  void SetReady(bool ready) EXCLUDES(reportLock_, udpLock_);
  void SetReadyLocked(bool ready) REQUIRES(reportLock_) EXCLUDES(udpLock_);
  // False if the path is or becomes closed.
  bool SleepUnlessClosed(std::chrono::milliseconds time) EXCLUDES(udpLock_);

  RelayHost& host_;
  UdpNetwork& network_;

  platform::Mutex udpLock_;
  platform::Condition closed_;
  DatagramSocketPointer socket_ GUARDED_BY(udpLock_);  // null: closed
  Hello hello_ GUARDED_BY(udpLock_);

  std::atomic<std::uint64_t> token_{0};  // 0: none
  std::atomic<std::chrono::milliseconds> lastAcknowledgement_{std::chrono::milliseconds(0)};
  std::atomic<bool> ready_{false};
  platform::Mutex reportLock_;  // orders the reports
  std::optional<bool> reported_ GUARDED_BY(reportLock_);

  std::vector<std::thread> threads_;  // used only by the thread that starts and joins
};

}  // namespace tunnel
