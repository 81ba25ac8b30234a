#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string_view>

#include "platform/mutex.h"
#include "platform/socket.h"
#include "tunnel/relay/relay_url.h"
#include "tunnel/relay/websocket_protocol.h"

namespace tunnel {

// Milliseconds of up-time, for the masking keys.
using TickCounter = std::uint32_t (*)();

// Sends all of `bytes` in slices of at most `sliceBytes`. Empty on success, else the error code of
// the failed send; a send that moves no bytes has failed even if its code is 0.
std::optional<int> SendAll(
    const std::function<platform::SocketResult(std::span<const std::byte>)>& send,
    std::span<const std::byte> bytes, std::size_t sliceBytes);

// The received but unread bytes of a stream, contiguous in memory.
//
// Threads: none inside; one caller at a time.
// Owns:    the memory, which grows as needed and shrinks once the bytes are read. At least
//          kReadableBehindPacket bytes behind the unread ones are readable.
class ReceiveBuffer {
 public:
  ReceiveBuffer();

  // Returns at least `bytes` of free space behind the unread bytes, which may move.
  std::span<std::byte> Room(std::size_t bytes);
  // Appends the first `bytes` of the room to the unread ones.
  void Add(std::size_t bytes) noexcept;

  [[nodiscard]] std::span<std::byte> Unread() noexcept {
    return {bytes_.get() + begin_, end_ - begin_};
  }
  // Marks the first `bytes` unread ones as read. They stay in place until the next Room().
  void Take(std::size_t bytes) noexcept;
  void Clear() noexcept { begin_ = end_ = 0; }

 private:
  void Resize(std::size_t capacity);

  std::size_t capacity_ = 0;
  std::unique_ptr<std::byte[]> bytes_;
  std::size_t begin_ = 0;
  std::size_t end_ = 0;
};

// One connection to the relay: a WebSocket over plain TCP. Each binary message is one IPv4 packet.
//
// Threads: Connect() and ReadMessage() by one thread at a time (the receiving one); SendFrame() and
//          Close() by any. Close() ends a call that waits in the network.
// Owns:    its sockets and buffers. Shared ownership keeps it alive for a thread that still uses it
//          after the tunnel has released it.
// Errors:  Connect() throws std::runtime_error with the texts below; the rest returns false.
class WebSocketRelay {
 public:
  // A null `tickMs` is the steady clock.
  explicit WebSocketRelay(TickCounter tickMs = nullptr);
  ~WebSocketRelay();
  WebSocketRelay(const WebSocketRelay&) = delete;
  WebSocketRelay& operator=(const WebSocketRelay&) = delete;

  // Closes an open connection, connects and does the handshake. Gives up once `isCancelled`, which
  // any thread may call, returns true. An empty `lookUp` is the system's. The texts, with N for a
  // system error code or an HTTP status:
  //   "wss relay is not supported by the native Winsock transport."
  //   "WSAStartup failed, error N"
  //   "getaddrinfo failed for relay host."
  //   "Relay TCP connect failed to HOST:PORT, error N"
  //   "WebSocket handshake send failed, error N"
  //   "WebSocket handshake receive failed, error N" (0: closed by the relay)
  //   "WebSocket handshake response was too large."
  //   "WebSocket HTTP upgrade failed, status N"
  // 8 seconds of silence are an error, here and later.
  void Connect(std::wstring_view relayUrl, const std::function<bool()>& isCancelled = {},
               const platform::HostLookup& lookUp = {});

  // Sends one unfragmented frame; frames of several threads never interleave. False if not
  // connected or if the send fails; the connection is then unusable.
  bool SendFrame(std::uint8_t opcode, std::span<const std::byte> payload);
  // Sends each payload as a frame of its own, all in one piece. False as above; some frames may
  // have been sent by then.
  bool SendFrames(std::uint8_t opcode, std::span<const std::span<const std::byte>> payloads);

  // Waits for the next binary message, answering pings. False once the connection has ended: by the
  // relay, a protocol fault, a failed pong, 8 seconds of silence or Close(). The message points
  // into the receive buffer, valid until the next call; the caller may change it and read
  // kReadableBehindPacket bytes behind it.
  bool ReadMessage(std::span<std::byte>& message);

  // Ends the connection. Safe to call twice.
  void Close() noexcept;

  [[nodiscard]] bool IsConnected() const noexcept EXCLUDES(stateLock_);
  // Everything received so far, including handshake and pongs; an increase proves that the relay is
  // alive. Any thread.
  [[nodiscard]] std::uint64_t ReceivedBytes() const noexcept { return receivedBytes_; }
  // Whether ReadMessage() has been called; before that, received bytes are not counted.
  [[nodiscard]] bool IsBeingRead() const noexcept { return isBeingRead_; }
  // The socket's options as reported by the system; all zero if not connected.
  [[nodiscard]] platform::Socket::Options SocketOptions();

 private:
  using SocketPointer = std::shared_ptr<platform::Socket>;

  SocketPointer ConnectSocket(const RelayEndpoint& endpoint,
                              const std::function<bool()>& isCancelled,
                              const platform::HostLookup& lookUp);
  SocketPointer Publish(SocketPointer socket);
  // Null if not connected.
  SocketPointer ConnectedSocket();
  void ShakeHands(platform::Socket& socket, const RelayEndpoint& endpoint);
  bool ReceiveMore(platform::Socket& socket, int& error);
  std::span<std::byte> FrameRoom(std::size_t bytes) REQUIRES(sendLock_);

  const TickCounter tickMs_;

  mutable platform::Mutex stateLock_;  // innermost; never held during a call on the socket
  // Also held by a Connect() in progress, so that Close() cannot unload it underneath.
  std::shared_ptr<platform::SocketLibrary> library_ GUARDED_BY(stateLock_);
  SocketPointer socket_ GUARDED_BY(stateLock_);
  // Changes together with socket_, so that a closed relay never counts as connected.
  bool connected_ GUARDED_BY(stateLock_) = false;

  platform::Mutex sendLock_;  // keeps frames whole
  std::uint32_t maskCounter_ GUARDED_BY(sendLock_) = 0;
  std::unique_ptr<std::byte[]> frames_ GUARDED_BY(sendLock_);  // being sent
  std::size_t framesCapacity_ GUARDED_BY(sendLock_) = 0;

  std::atomic<std::uint64_t> receivedBytes_{0};
  std::atomic<bool> isBeingRead_{false};

  // Used only by the receiving thread.
  std::unique_ptr<FrameReader> reader_ = std::make_unique<FrameReader>();
  ReceiveBuffer received_;
};

}  // namespace tunnel
