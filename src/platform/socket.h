#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>

#include "platform/mutex.h"
#include "platform/socket_address.h"

// Sockets, the same on Winsock and POSIX. Error codes are the system's own numbers (WSAGetLastError
// or errno); 0 means no error.
namespace platform {

// One WSAStartup (version 2.2), balanced by one WSACleanup. POSIX has nothing to start.
//
// Threads: none inside; one caller at a time. Several objects may live side by side.
class SocketLibrary {
 public:
  SocketLibrary() noexcept = default;
  ~SocketLibrary();
  SocketLibrary(const SocketLibrary&) = delete;
  SocketLibrary& operator=(const SocketLibrary&) = delete;

  // 0, or the code with which WSAStartup failed. Starting twice is starting once.
  [[nodiscard]] int Start() noexcept;

 private:
  bool started_ = false;
};

// What one call moved. bytes 0 with error 0 on a stream: the peer has ended the connection.
struct SocketResult {
  std::size_t bytes = 0;
  int error = 0;
};

// True for what a receive or send returns when SO_RCVTIMEO or SO_SNDTIMEO has passed.
bool IsSocketTimeout(int error) noexcept;
// True for what says that the socket is closed or its call was cancelled (Windows: WSAENOTSOCK,
// ERROR_OPERATION_ABORTED).
bool IsSocketClosed(int error) noexcept;
// The code every call returns once Close() has been called, also the call that Close() woke,
// whatever the system itself said: WSAENOTSOCK (10038), EBADF.
int SocketClosedError() noexcept;

// One socket.
//
// Threads: any number may call at once. Close() ends their calls; it is the one place where a
//          blocked call is woken.
// Owns:    the system's handle. It is closed when no call is inside any more, so that a number
//          which the system hands out again is never used by a late call.
// Errors:  returned, never thrown.
class Socket {
 public:
  // Null when the system refuses; then `error` is its code.
  // `family` as SocketAddress::Family() tells it.
  static std::shared_ptr<Socket> Create(SocketKind kind, int family, int& error);
  ~Socket();
  Socket(const Socket&) = delete;
  Socket& operator=(const Socket&) = delete;

  // Each returns 0 or the error code.
  int SetTimeouts(std::chrono::milliseconds receive, std::chrono::milliseconds send) noexcept;
  int SetNoDelay() noexcept;
  int SetKeepAlive() noexcept;
  // Wishes; the system may grant less (or, on Linux, twice as much).
  int SetBufferBytes(int receiveBytes, int sendBytes) noexcept;

  // The options as the system holds them.
  struct Options {
    std::chrono::milliseconds receiveTimeout{0};
    std::chrono::milliseconds sendTimeout{0};
    bool noDelay = false;
    bool keepAlive = false;
    int receiveBufferBytes = 0;
    int sendBufferBytes = 0;
  };
  [[nodiscard]] Options ReadOptions() noexcept;

  // Gives up after `limit` with a code that IsSocketTimeout() knows; the system itself would try
  // for more than twenty seconds, whatever the time-outs of the socket.
  int Connect(const SocketAddress& address, std::chrono::milliseconds limit) noexcept;
  int Bind(const SocketAddress& address) noexcept;
  int Listen() noexcept;
  // Blocks for the next connection; null on failure, then `error` is the code.
  std::shared_ptr<Socket> Accept(int& error);
  [[nodiscard]] SocketAddress LocalAddress() noexcept;

  // One send or recv; may move less than asked. Never raises SIGPIPE.
  SocketResult Send(std::span<const std::byte> bytes) noexcept;
  SocketResult Receive(std::span<std::byte> buffer) noexcept;
  // One datagram. Receiving one that is longer than `buffer` is an error (WSAEMSGSIZE, EMSGSIZE),
  // and the datagram is gone.
  SocketResult SendTo(std::span<const std::byte> bytes, const SocketAddress& to) noexcept;
  SocketResult ReceiveFrom(std::span<std::byte> buffer, SocketAddress& from) noexcept;

  // Shuts the connection down, wakes every blocked call and closes the handle after the last of
  // them has left. Safe to call twice and from any thread that is not inside a call.
  void Close() noexcept;

 private:
  class Call;
  explicit Socket(std::uintptr_t raw) noexcept : raw_(raw) {}
  static int ConnectUnblocked(const Call& call, const SocketAddress& address,
                              std::chrono::milliseconds limit) noexcept;
  int SetOption(int level, int name, const void* value, std::size_t sizeBytes) noexcept;

  Mutex lock_;
  Condition left_;  // a call has left
  std::uintptr_t raw_ GUARDED_BY(lock_);
  int callsInside_ GUARDED_BY(lock_) = 0;
  bool closed_ GUARDED_BY(lock_) = false;
};

}  // namespace platform
