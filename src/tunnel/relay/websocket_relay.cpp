#include "tunnel/relay/websocket_relay.h"

#include <algorithm>
#include <cassert>
#include <chrono>
#include <cstring>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "text/utf8.h"
#include "tunnel/packets/packet.h"
#include "tunnel/relay/websocket_protocol.h"

namespace tunnel {
namespace {

constexpr std::chrono::milliseconds kNetworkTimeout{8000};
constexpr int kSocketBufferBytes = 4194304;
constexpr std::size_t kSliceBytes = 65536;
constexpr std::size_t kKeptFrameBytes = 1048576;

// Milliseconds of a steady clock in 32 bits, like GetTickCount.
std::uint32_t SteadyTickMs() {
  const auto now = std::chrono::steady_clock::now().time_since_epoch();
  return static_cast<std::uint32_t>(
      std::chrono::duration_cast<std::chrono::milliseconds>(now).count());
}

std::runtime_error ErrorWithCode(const std::string& what, int code) {
  return std::runtime_error(what + std::to_string(code));
}

auto SenderOf(platform::Socket& socket) {
  return [&socket](std::span<const std::byte> slice) { return socket.Send(slice); };
}

// Two full reads of a socket, so that unread bytes seldom have to be moved.
constexpr std::size_t kUsualCapacity = 131072;

void ThrowIfCancelled(const std::function<bool()>& isCancelled) {
  if (isCancelled && isCancelled()) throw std::runtime_error("The relay connection was closed.");
}

}  // namespace

std::optional<int> SendAll(
    const std::function<platform::SocketResult(std::span<const std::byte>)>& send,
    std::span<const std::byte> bytes, std::size_t sliceBytes) {
  while (!bytes.empty()) {
    const platform::SocketResult sent = send(bytes.first(std::min(bytes.size(), sliceBytes)));
    // Even with code 0: repeating a send that moves nothing would never end.
    if (sent.bytes == 0) return sent.error;
    bytes = bytes.subspan(sent.bytes);
  }
  return {};
}

WebSocketRelay::WebSocketRelay(TickCounter tickMs)
    : tickMs_(tickMs != nullptr ? tickMs : SteadyTickMs) {}

WebSocketRelay::~WebSocketRelay() {
  Close();
}

void WebSocketRelay::Connect(std::wstring_view relayUrl, const std::function<bool()>& isCancelled,
                             const platform::HostLookup& lookUp) {
  const std::optional<RelayEndpoint> endpoint = ParseRelayUrl(relayUrl);
  if (!endpoint) {
    throw std::runtime_error("WinHttpCrackUrl failed for URL: " + text::ToUtf8(relayUrl));
  }
  if (endpoint->secure) {
    throw std::runtime_error("wss relay is not supported by the native Winsock transport.");
  }
  Close();
  const auto library = std::make_shared<platform::SocketLibrary>();
  if (const int error = library->Start(); error != 0) {
    throw ErrorWithCode("WSAStartup failed, error ", error);
  }
  {
    const platform::MutexLock held(stateLock_);
    library_ = library;
  }
  try {
    const SocketPointer socket = ConnectSocket(*endpoint, isCancelled, lookUp);
    socket->SetNoDelay();
    socket->SetKeepAlive();
    socket->SetBufferBytes(kSocketBufferBytes, kSocketBufferBytes);
    ShakeHands(*socket, *endpoint);
    const platform::MutexLock held(stateLock_);
    // Close() may have come at the very end of the handshake.
    if (socket_ != socket) throw std::runtime_error("The relay connection was closed.");
    connected_ = true;
  } catch (...) {
    Close();
    throw;
  }
}

WebSocketRelay::SocketPointer WebSocketRelay::ConnectSocket(
    const RelayEndpoint& endpoint, const std::function<bool()>& isCancelled,
    const platform::HostLookup& lookUp) {
  const std::string host = text::ToUtf8(endpoint.host);
  const std::vector<platform::SocketAddress> addresses =
      platform::ResolveHost(host, endpoint.port, platform::SocketKind::Tcp, isCancelled, lookUp);
  ThrowIfCancelled(isCancelled);
  if (addresses.empty()) throw std::runtime_error("getaddrinfo failed for relay host.");
  int error = 0;
  for (const platform::SocketAddress& address : addresses) {
    SocketPointer socket =
        platform::Socket::Create(platform::SocketKind::Tcp, address.Family(), error);
    if (socket == nullptr) continue;
    Publish(socket);
    ThrowIfCancelled(isCancelled);
    socket->SetTimeouts(kNetworkTimeout, kNetworkTimeout);
    error = socket->Connect(address, kNetworkTimeout);
    if (error == 0) return socket;
    // A closed attempt fails like any other; without this check it would continue with the next
    // address.
    ThrowIfCancelled(isCancelled);
    socket->Close();
  }
  throw ErrorWithCode(
      "Relay TCP connect failed to " + host + ":" + std::to_string(endpoint.port) + ", error ",
      error);
}

// Makes `socket` the one that Close() closes. Connect checks isCancelled after this, and a stop is
// requested before Close(): so one of the two always sees the other.
WebSocketRelay::SocketPointer WebSocketRelay::Publish(SocketPointer socket) {
  const platform::MutexLock held(stateLock_);
  return std::exchange(socket_, std::move(socket));
}

WebSocketRelay::SocketPointer WebSocketRelay::ConnectedSocket() {
  const platform::MutexLock held(stateLock_);
  return connected_ ? socket_ : nullptr;
}

bool WebSocketRelay::IsConnected() const noexcept {
  const platform::MutexLock held(stateLock_);
  return connected_;
}

void WebSocketRelay::ShakeHands(platform::Socket& socket, const RelayEndpoint& endpoint) {
  const std::string request = BuildHandshakeRequest(endpoint.path, endpoint.host);
  // In one send; only a request larger than the socket's buffer needs a second.
  const std::span bytes = std::as_bytes(std::span(request));
  if (const auto error = SendAll(SenderOf(socket), bytes, bytes.size())) {
    throw ErrorWithCode("WebSocket handshake send failed, error ", *error);
  }
  reader_ = std::make_unique<FrameReader>();
  received_.Clear();
  HandshakeReader response;
  for (;;) {
    int error = 0;
    if (!ReceiveMore(socket, error)) {
      throw ErrorWithCode("WebSocket handshake receive failed, error ", error);
    }
    const HandshakeReader::Result result = response.Feed(received_.Unread());
    received_.Take(result.takenBytes);
    if (result.state == HandshakeState::TooLarge) {
      throw std::runtime_error("WebSocket handshake response was too large.");
    }
    if (result.state == HandshakeState::Done) break;
  }
  if (response.Status() != 101) {
    throw ErrorWithCode("WebSocket HTTP upgrade failed, status ", response.Status());
  }
}

bool WebSocketRelay::SendFrame(std::uint8_t opcode, std::span<const std::byte> payload) {
  return SendFrames(opcode, {&payload, 1});
}

bool WebSocketRelay::SendFrames(std::uint8_t opcode,
                                std::span<const std::span<const std::byte>> payloads) {
  const platform::MutexLock held(sendLock_);
  const SocketPointer socket = ConnectedSocket();
  if (socket == nullptr) return false;
  // One reading for the batch; the counter still gives each frame its own key.
  const std::uint32_t tickMs = tickMs_();
  std::size_t bytes = 0;
  for (const auto payload : payloads) bytes += FrameBytes(payload.size());
  const std::span<std::byte> room = FrameRoom(bytes);
  std::size_t at = 0;
  for (const auto payload : payloads) {
    const std::uint32_t key = MakeMaskKey(maskCounter_++, tickMs);
    at += WriteFrame(room.subspan(at), opcode, payload, key).size();
  }
  return !SendAll(SenderOf(*socket), room, kSliceBytes);
}

// Memory to write frames into. The extra memory of a rare long message is freed by the next send.
std::span<std::byte> WebSocketRelay::FrameRoom(std::size_t bytes) {
  const bool isOversized = framesCapacity_ > kKeptFrameBytes && bytes <= kKeptFrameBytes;
  if (bytes > framesCapacity_ || isOversized) {
    framesCapacity_ = 0;  // in case the next line throws
    frames_ = std::make_unique_for_overwrite<std::byte[]>(std::max(bytes, kSliceBytes));
    framesCapacity_ = std::max(bytes, kSliceBytes);
  }
  return {frames_.get(), bytes};
}

// Receives into the buffer. False at the end of the stream (error 0) or after a failure.
bool WebSocketRelay::ReceiveMore(platform::Socket& socket, int& error) {
  const platform::SocketResult received =
      socket.Receive(received_.Room(kSliceBytes).first(kSliceBytes));
  error = received.error;
  received_.Add(received.bytes);
  receivedBytes_ += received.bytes;
  return received.bytes > 0;
}

bool WebSocketRelay::ReadMessage(std::span<std::byte>& message) {
  const SocketPointer socket = ConnectedSocket();
  if (socket == nullptr) return false;
  // From here on received bytes are counted, so RelayWatch may judge by them.
  isBeingRead_ = true;
  for (;;) {
    const FrameReader::Result result = reader_->Feed(received_.Unread());
    received_.Take(result.takenBytes);
    int error = 0;
    switch (result.event) {
      case FrameEvent::NeedMore:
        if (!ReceiveMore(*socket, error)) return false;
        break;
      case FrameEvent::Message:
        message = reader_->Payload();
        return true;
      case FrameEvent::Ping:
        // After a partial pong the relay would take the next frame for its remainder.
        if (!SendFrame(kOpcodePong, reader_->Payload())) return false;
        break;
      case FrameEvent::Ended:
        return false;
    }
  }
}

void WebSocketRelay::Close() noexcept {
  SocketPointer socket;
  std::shared_ptr<platform::SocketLibrary> library;
  {
    const platform::MutexLock held(stateLock_);
    connected_ = false;
    socket.swap(socket_);
    library.swap(library_);
  }
  // Outside the lock: closing waits for calls on the socket, and their threads may need the lock.
  if (socket != nullptr) socket->Close();
}

platform::Socket::Options WebSocketRelay::SocketOptions() {
  const SocketPointer socket = ConnectedSocket();
  return socket == nullptr ? platform::Socket::Options{} : socket->ReadOptions();
}

ReceiveBuffer::ReceiveBuffer() {
  Resize(kUsualCapacity);
}

std::span<std::byte> ReceiveBuffer::Room(std::size_t bytes) {
  const std::size_t unread = end_ - begin_;
  const bool isOversized = capacity_ > kUsualCapacity && unread + bytes <= kUsualCapacity;
  if (isOversized) {
    Resize(kUsualCapacity);
  } else if (unread + bytes > capacity_) {
    Resize(std::max(2 * capacity_, unread + bytes));
  } else if (bytes > capacity_ - end_ || unread == 0) {
    // With nothing unread the move costs nothing and regains all of the room.
    std::memmove(bytes_.get(), bytes_.get() + begin_, unread);
    begin_ = 0;
    end_ = unread;
  }
  return {bytes_.get() + end_, capacity_ - end_};
}

void ReceiveBuffer::Add(std::size_t bytes) noexcept {
  assert(bytes <= capacity_ - end_);
  end_ += bytes;
}

void ReceiveBuffer::Take(std::size_t bytes) noexcept {
  assert(bytes <= end_ - begin_);
  begin_ += bytes;
}

// Moves the unread bytes to the start of the new memory.
void ReceiveBuffer::Resize(std::size_t capacity) {
  auto bytes = std::make_unique_for_overwrite<std::byte[]>(capacity + kReadableBehindPacket);
  const std::size_t unread = end_ - begin_;
  if (unread > 0) std::memcpy(bytes.get(), bytes_.get() + begin_, unread);
  // The checksum function may read these bytes; zero them so that they are not uninitialised.
  std::memset(bytes.get() + capacity, 0, kReadableBehindPacket);
  bytes_ = std::move(bytes);
  capacity_ = capacity;
  begin_ = 0;
  end_ = unread;
}

}  // namespace tunnel
