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

// What a relay connection takes from the world besides sockets; all may be left empty.
struct RelayHooks {
  std::function<std::uint32_t()> tickMs;  // for the masking keys; empty: the system's up-time
  std::function<bool()> isCancelled;      // any thread; true makes Connect() give up
  platform::HostLookup lookUp = {};       // empty: the system's
};

// Sends all of `bytes` by calls of `send`, each with a slice of at most `sliceBytes`. Empty when
// that worked, else the error code of the send that did not: one that moves nothing has failed even
// if it reports no error (0).
std::optional<int> SendAll(
    const std::function<platform::SocketResult(std::span<const std::byte>)>& send,
    std::span<const std::byte> bytes, std::size_t sliceBytes);

// The bytes of a stream that have arrived and are not read yet, one behind the other in memory.
//
// Threads: none inside; one caller at a time.
// Owns:    the memory, which grows while what is unread does not fit and shrinks once it is read.
//          At least kReadableBehindPacket bytes behind what is unread can be read.
class ReceiveBuffer {
 public:
  ReceiveBuffer();

  // Where the next bytes go: at least `bytes` of room behind what is unread. Moves what is unread.
  std::span<std::byte> Room(std::size_t bytes);
  // So many have come into the room.
  void Add(std::size_t bytes) noexcept;

  [[nodiscard]] std::span<std::byte> Unread() noexcept {
    return {bytes_.get() + begin_, end_ - begin_};
  }
  // The first `bytes` of what is unread are read. They stay where they are until the next Room().
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
// Owns:    its sockets and buffers. Held by shared ownership, so that a thread that uses it keeps
//          it alive while the tunnel lets it go.
// Errors:  Connect() throws std::runtime_error with the texts below; the rest returns false.
class WebSocketRelay {
 public:
  explicit WebSocketRelay(RelayHooks hooks = {});
  ~WebSocketRelay();
  WebSocketRelay(const WebSocketRelay&) = delete;
  WebSocketRelay& operator=(const WebSocketRelay&) = delete;

  // Opens the connection and does the handshake, after closing what is still open. The texts, where
  // N is a system's error code or an HTTP status:
  //   "wss relay is not supported by the native Winsock transport."
  //   "WSAStartup failed, error N"
  //   "getaddrinfo failed for relay host."
  //   "Relay TCP connect failed to HOST:PORT, error N"
  //   "WebSocket handshake send failed, error N"
  //   "WebSocket handshake receive failed, error N" (0: the relay ended the connection)
  //   "WebSocket handshake response was too large."
  //   "WebSocket HTTP upgrade failed, status N"
  // A network that stays silent for 8 seconds is an error, here and later.
  void Connect(std::wstring_view relayUrl);

  // Sends one unfragmented frame; whole frames of several threads never mix. False when not
  // connected or the network refuses; the connection is then of no more use.
  bool SendFrame(std::uint8_t opcode, std::span<const std::byte> payload);
  // Sends each payload as a frame of its own, all of them one behind the other in one piece. False
  // as above; some may have gone out then.
  bool SendFrames(std::uint8_t opcode, std::span<const std::span<const std::byte>> payloads);

  // Waits for the next binary message and answers pings meanwhile. False when the connection has
  // ended: by the relay, a fault, a pong that could not be sent, 8 seconds of silence or Close().
  // The message stays where it was received, valid until the next call and the caller's to change;
  // kReadableBehindPacket bytes behind it can be read.
  bool ReadMessage(std::span<std::byte>& message);

  // Ends the connection. Safe to call twice.
  void Close() noexcept;

  [[nodiscard]] bool IsConnected() const noexcept EXCLUDES(stateLock_);
  // Of everything that the relay has sent so far, handshake and pongs included; more of them than
  // a moment ago means that the relay is there. Any thread.
  [[nodiscard]] std::uint64_t ReceivedBytes() const noexcept { return receivedBytes_; }
  // Whether ReadMessage() has been called; until then nothing that the relay sends is counted.
  [[nodiscard]] bool IsBeingRead() const noexcept { return isBeingRead_; }
  // The socket's options as the system holds them; all zero when not connected.
  [[nodiscard]] platform::Socket::Options SocketOptions();

 private:
  using SocketPointer = std::shared_ptr<platform::Socket>;

  SocketPointer ConnectSocket(const RelayEndpoint& endpoint);
  SocketPointer Publish(SocketPointer socket);
  // Null when not connected.
  SocketPointer ConnectedSocket();
  void ShakeHands(platform::Socket& socket, const RelayEndpoint& endpoint);
  bool ReceiveMore(platform::Socket& socket, int& error);
  void ThrowIfCancelled() const;
  std::span<std::byte> FrameRoom(std::size_t bytes) REQUIRES(sendLock_);

  const RelayHooks hooks_;

  mutable platform::Mutex stateLock_;  // innermost; never held during a call on the socket
  // Held by the connection and by a Connect() under way, so that neither stops it for the other.
  std::shared_ptr<platform::SocketLibrary> library_ GUARDED_BY(stateLock_);
  SocketPointer socket_ GUARDED_BY(stateLock_);
  // Changes together with the socket, so that a closed relay never counts as connected.
  bool connected_ GUARDED_BY(stateLock_) = false;

  platform::Mutex sendLock_;  // whole frames
  std::uint32_t maskCounter_ GUARDED_BY(sendLock_) = 0;
  std::unique_ptr<std::byte[]> frames_ GUARDED_BY(sendLock_);  // what is being sent
  std::size_t framesCapacity_ GUARDED_BY(sendLock_) = 0;

  std::atomic<std::uint64_t> receivedBytes_{0};
  std::atomic<bool> isBeingRead_{false};

  // The receiving thread's.
  std::unique_ptr<FrameReader> reader_ = std::make_unique<FrameReader>();
  ReceiveBuffer received_;
};

}  // namespace tunnel
