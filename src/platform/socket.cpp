#include "platform/socket.h"

#include <algorithm>
#include <cstring>

#include "platform/socket_system.h"

namespace platform {
namespace {

using namespace socket_system;

// Winsock takes char*; POSIX takes void*, to which char* converts.
const char* Bytes(const void* data) noexcept {
  return static_cast<const char*>(data);
}
char* Bytes(void* data) noexcept {
  return static_cast<char*>(data);
}

constexpr int kOn = 1;
// Close() wakes blocked calls this often, with this pause in between.
constexpr int kWakeTries = 100;
constexpr std::chrono::milliseconds kWakePause{2};
// A connect notices Close() within this time.
constexpr std::chrono::milliseconds kConnectSlice{20};

template <typename Value>
Value ReadOption(Raw raw, int level, int name) noexcept {
  Value value{};
  socklen_t size = sizeof(value);
  ::getsockopt(raw, level, name, static_cast<char*>(static_cast<void*>(&value)), &size);
  return value;
}

// The result of a finished connect, 0 on success.
int ConnectError(Raw raw) noexcept {
  int error = 0;
  socklen_t size = sizeof(error);
  void* const value = &error;
  const int failed = ::getsockopt(raw, SOL_SOCKET, SO_ERROR, static_cast<char*>(value), &size);
  return failed == 0 ? error : LastError();
}

const sockaddr* System(const SocketAddress& address) noexcept {
  return static_cast<const sockaddr*>(address.Data());
}

// Converts the result of send or recv; must run before any other call changes the error.
template <typename Moved>
SocketResult ToResult(Moved moved) noexcept {
  if (moved < 0) return {0, LastError()};
  return {static_cast<std::size_t>(moved), 0};
}

}  // namespace

SocketLibrary::~SocketLibrary() {
#ifdef _WIN32
  if (started_) ::WSACleanup();
#endif
}

int SocketLibrary::Start() noexcept {
  if (started_) return 0;
#ifdef _WIN32
  WSADATA data{};
  // Winsock counts these calls, and each needs its own WSACleanup.
  const int error = ::WSAStartup(MAKEWORD(2, 2), &data);
  if (error != 0) return error;
#endif
  started_ = true;
  return 0;
}

bool IsSocketTimeout(int error) noexcept {
#ifdef _WIN32
  return error == WSAETIMEDOUT;
#else
  // EAGAIN after a socket's own time-out (socket(7)), ETIMEDOUT after a connect.
  return error == EAGAIN || error == EWOULDBLOCK || error == ETIMEDOUT;
#endif
}

bool IsSocketClosed(int error) noexcept {
#ifdef _WIN32
  // From CancelIoEx, by which Close() wakes a blocked call here.
  if (error == ERROR_OPERATION_ABORTED) return true;
#endif
  return error == kClosed;
}

int SocketClosedError() noexcept {
  return kClosed;
}

// A call in progress: keeps the handle open for its lifetime.
class Socket::Call {
 public:
  explicit Call(Socket& socket) noexcept : socket_(socket) {
    const MutexLock held(socket_.lock_);
    if (socket_.closed_) return;
    ++socket_.callsInside_;
    raw_ = static_cast<Raw>(socket_.raw_);
    entered_ = true;
  }
  ~Call() {
    if (!entered_) return;
    const MutexLock held(socket_.lock_);
    --socket_.callsInside_;
    // Under the lock: once that is released, Close() may return and the socket be destroyed.
    socket_.left_.NotifyAll();
  }
  Call(const Call&) = delete;
  Call& operator=(const Call&) = delete;

  [[nodiscard]] bool Entered() const noexcept { return entered_; }
  [[nodiscard]] Raw Handle() const noexcept { return raw_; }
  // Returns `error`, or the closed code after Close(): a woken call reports many different errors.
  [[nodiscard]] int Judge(int error) const noexcept {
    const MutexLock held(socket_.lock_);
    return socket_.closed_ ? kClosed : error;
  }
  [[nodiscard]] SocketResult Judge(SocketResult result) const noexcept {
    // Bytes that moved just before Close() do not count: every caller sees the closed code.
    const int error = Judge(result.error);
    return error == 0 ? result : SocketResult{0, error};
  }

 private:
  Socket& socket_;
  Raw raw_{};
  bool entered_ = false;
};

std::shared_ptr<Socket> Socket::Create(SocketKind kind, int family, int& error) {
  const bool udp = kind == SocketKind::UdpIpv4;
  const Raw raw = ::socket(family, udp ? SOCK_DGRAM : SOCK_STREAM, udp ? IPPROTO_UDP : IPPROTO_TCP);
  error = IsValid(raw) ? 0 : LastError();
  if (!IsValid(raw)) return nullptr;
  return std::shared_ptr<Socket>(new Socket(static_cast<std::uintptr_t>(raw)));
}

Socket::~Socket() {
  Close();
}

int Socket::SetOption(int level, int name, const void* value, std::size_t sizeBytes) noexcept {
  const Call call(*this);
  if (!call.Entered()) return kClosed;
  const int failed = ::setsockopt(call.Handle(), level, name, static_cast<const char*>(value),
                                  static_cast<socklen_t>(sizeBytes));
  return failed == 0 ? 0 : LastError();
}

int Socket::SetTimeouts(std::chrono::milliseconds receive,
                        std::chrono::milliseconds send) noexcept {
  const TimeValue receiveValue = ToTimeValue(receive);
  const TimeValue sendValue = ToTimeValue(send);
  // Both are set, even if one is refused; the first error is reported.
  const int error = SetOption(SOL_SOCKET, SO_RCVTIMEO, &receiveValue, sizeof(receiveValue));
  const int second = SetOption(SOL_SOCKET, SO_SNDTIMEO, &sendValue, sizeof(sendValue));
  return error != 0 ? error : second;
}

int Socket::SetNoDelay() noexcept {
  return SetOption(IPPROTO_TCP, TCP_NODELAY, &kOn, sizeof(kOn));
}

int Socket::SetKeepAlive() noexcept {
  return SetOption(SOL_SOCKET, SO_KEEPALIVE, &kOn, sizeof(kOn));
}

int Socket::SetBufferBytes(int receiveBytes, int sendBytes) noexcept {
  const int error = SetOption(SOL_SOCKET, SO_RCVBUF, &receiveBytes, sizeof(receiveBytes));
  const int second = SetOption(SOL_SOCKET, SO_SNDBUF, &sendBytes, sizeof(sendBytes));
  return error != 0 ? error : second;
}

Socket::Options Socket::ReadOptions() noexcept {
  Options options;
  const Call call(*this);
  if (!call.Entered()) return options;
  const Raw raw = call.Handle();
  options.receiveTimeout = FromTimeValue(ReadOption<TimeValue>(raw, SOL_SOCKET, SO_RCVTIMEO));
  options.sendTimeout = FromTimeValue(ReadOption<TimeValue>(raw, SOL_SOCKET, SO_SNDTIMEO));
  options.noDelay = ReadOption<int>(raw, IPPROTO_TCP, TCP_NODELAY) != 0;
  options.keepAlive = ReadOption<int>(raw, SOL_SOCKET, SO_KEEPALIVE) != 0;
  options.receiveBufferBytes = ReadOption<int>(raw, SOL_SOCKET, SO_RCVBUF);
  options.sendBufferBytes = ReadOption<int>(raw, SOL_SOCKET, SO_SNDBUF);
  return options;
}

// Waits in slices: on both systems, only the socket's own state shows that Close() was called.
int Socket::ConnectUnblocked(const Call& call, const SocketAddress& address,
                             std::chrono::milliseconds limit) noexcept {
  const Raw raw = call.Handle();
  const int failed = ::connect(raw, System(address), static_cast<socklen_t>(address.SizeBytes()));
  const int error = failed == 0 ? 0 : LastError();
  // Ended at once: connected, or failed because there is no route.
  if (error != kConnecting) return call.Judge(error);

  const auto end = std::chrono::steady_clock::now() + limit;
  int ended = 0;
  while ((ended = AwaitConnect(raw, kConnectSlice)) == 0) {
    if (call.Judge(0) != 0) return kClosed;
    if (std::chrono::steady_clock::now() >= end) return kTimedOut;
  }
  // The wait ends after a failed connect, too; the socket's own error distinguishes them.
  return call.Judge(ended < 0 ? LastError() : ConnectError(raw));
}

int Socket::Connect(const SocketAddress& address, std::chrono::milliseconds limit) noexcept {
  const Call call(*this);
  if (!call.Entered()) return kClosed;
  // A blocking connect ignores SO_SNDTIMEO and takes about 21 s for a dead address.
  if (const int error = SetBlocking(call.Handle(), false)) return error;
  const int error = ConnectUnblocked(call, address, limit);
  // After a failure as well: a receive on a non-blocking socket would not wait.
  const int notBack = SetBlocking(call.Handle(), true);
  return error != 0 ? error : notBack;
}

int Socket::Bind(const SocketAddress& address) noexcept {
  const Call call(*this);
  if (!call.Entered()) return kClosed;
  const int failed =
      ::bind(call.Handle(), System(address), static_cast<socklen_t>(address.SizeBytes()));
  return failed == 0 ? 0 : LastError();
}

int Socket::Listen() noexcept {
  const Call call(*this);
  if (!call.Entered()) return kClosed;
  return ::listen(call.Handle(), 16) == 0 ? 0 : LastError();
}

std::shared_ptr<Socket> Socket::Accept(int& error) {
  const Call call(*this);
  error = kClosed;
  if (!call.Entered()) return nullptr;
  const Raw raw = ::accept(call.Handle(), nullptr, nullptr);
  error = call.Judge(IsValid(raw) ? 0 : LastError());
  if (error == 0) return std::shared_ptr<Socket>(new Socket(static_cast<std::uintptr_t>(raw)));
  // Accepted while Close() was called: no one takes the connection.
  if (IsValid(raw)) CloseRaw(raw);
  return nullptr;
}

SocketAddress Socket::LocalAddress() noexcept {
  const Call call(*this);
  if (!call.Entered()) return {};
  sockaddr_storage storage{};
  socklen_t size = sizeof(storage);
  sockaddr* const name = static_cast<sockaddr*>(static_cast<void*>(&storage));
  if (::getsockname(call.Handle(), name, &size) != 0) return {};
  return SocketAddress::FromSystem(&storage, static_cast<std::size_t>(size));
}

SocketResult Socket::Send(std::span<const std::byte> bytes) noexcept {
  const Call call(*this);
  if (!call.Entered()) return {0, kClosed};
  return call.Judge(
      ToResult(::send(call.Handle(), Bytes(bytes.data()), ToLength(bytes.size()), kSendFlags)));
}

SocketResult Socket::Receive(std::span<std::byte> buffer) noexcept {
  const Call call(*this);
  if (!call.Entered()) return {0, kClosed};
  return call.Judge(
      ToResult(::recv(call.Handle(), Bytes(buffer.data()), ToLength(buffer.size()), 0)));
}

SocketResult Socket::SendTo(std::span<const std::byte> bytes, const SocketAddress& to) noexcept {
  const Call call(*this);
  if (!call.Entered()) return {0, kClosed};
  return call.Judge(
      ToResult(::sendto(call.Handle(), Bytes(bytes.data()), ToLength(bytes.size()), kSendFlags,
                        System(to), static_cast<socklen_t>(to.SizeBytes()))));
}

SocketResult Socket::ReceiveFrom(std::span<std::byte> buffer, SocketAddress& from) noexcept {
  const Call call(*this);
  if (!call.Entered()) return {0, kClosed};
  sockaddr_storage storage{};
  socklen_t size = sizeof(storage);
  sockaddr* const name = static_cast<sockaddr*>(static_cast<void*>(&storage));
  const SocketResult result = call.Judge(ToResult(::recvfrom(
      call.Handle(), Bytes(buffer.data()), ToLength(buffer.size()), kDatagramFlags, name, &size)));
  if (result.bytes > buffer.size()) return {0, kTooLong};  // Winsock returns the error itself
  if (result.error == 0) {
    from = SocketAddress::FromSystem(&storage, static_cast<std::size_t>(size));
  }
  return result;
}

void Socket::Close() noexcept {
  const MutexLock held(lock_);
  if (closed_) return;
  // First, so that no further call enters and each one that is woken reports the closed code.
  closed_ = true;
  const Raw raw = static_cast<Raw>(raw_);
  ShutDown(raw);
  // A call may have entered but not blocked yet, so it is woken again until it has left. If the
  // system fails to wake it, closing the handle is the last resort.
  for (int tries = 0; callsInside_ > 0 && tries < kWakeTries; ++tries) {
    Wake(raw);
    left_.WaitFor(lock_, kWakePause);
  }
  CloseRaw(raw);
}

}  // namespace platform
