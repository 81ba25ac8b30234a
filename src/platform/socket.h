#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>

#include "platform/mutex.h"
#include "platform/socket_address.h"

// Sockets on Winsock and POSIX. Error codes are the system's (WSAGetLastError or errno); 0 means no
// error.
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

  // Returns 0, or the code of a failed WSAStartup. Further calls do nothing.
  [[nodiscard]] int Start() noexcept;

 private:
  bool started_ = false;
};

// The result of one call. bytes 0 with error 0 on a stream: the peer has closed the connection.
struct SocketResult {
  std::size_t bytes = 0;
  int error = 0;
};

// True for the error of a receive or send after SO_RCVTIMEO or SO_SNDTIMEO has passed.
bool IsSocketTimeout(int error) noexcept;
// True for the errors of a closed socket and a cancelled call (Windows: WSAENOTSOCK,
// ERROR_OPERATION_ABORTED).
bool IsSocketClosed(int error) noexcept;
// The error of every call after Close() and of the calls that Close() wakes, whatever the system
// reports: WSAENOTSOCK (10038), EBADF.
int SocketClosedError() noexcept;

// One socket.
//
// Threads: any number at once. Only Close() wakes blocked calls.
// Owns:    the system's handle, closed after the last call has left: the system reuses handle
//          numbers, and a late call must not use another socket's.
// Errors:  returned, never thrown.
class Socket {
 public:
  // `family` as in SocketAddress::Family(). Null on failure, with the code in `error`.
  static std::shared_ptr<Socket> Create(SocketKind kind, int family, int& error);
  ~Socket();
  Socket(const Socket&) = delete;
  Socket& operator=(const Socket&) = delete;

  // Each returns 0 or the error code.
  int SetTimeouts(std::chrono::milliseconds receive, std::chrono::milliseconds send) noexcept;
  int SetNoDelay() noexcept;
  int SetKeepAlive() noexcept;
  // Requests only; the system may grant less (or, on Linux, twice as much).
  int SetBufferBytes(int receiveBytes, int sendBytes) noexcept;

  // The options in force.
  struct Options {
    std::chrono::milliseconds receiveTimeout{0};
    std::chrono::milliseconds sendTimeout{0};
    bool noDelay = false;
    bool keepAlive = false;
    int receiveBufferBytes = 0;
    int sendBufferBytes = 0;
  };
  [[nodiscard]] Options ReadOptions() noexcept;

  // Gives up after `limit` with an IsSocketTimeout() error; the system alone would try for more
  // than twenty seconds, whatever the socket's time-outs.
  int Connect(const SocketAddress& address, std::chrono::milliseconds limit) noexcept;
  int Bind(const SocketAddress& address) noexcept;
  int Listen() noexcept;
  // Blocks for the next connection; null on failure, with the code in `error`.
  std::shared_ptr<Socket> Accept(int& error);
  [[nodiscard]] SocketAddress LocalAddress() noexcept;

  // One send or recv; may move fewer bytes. Never raises SIGPIPE.
  SocketResult Send(std::span<const std::byte> bytes) noexcept;
  SocketResult Receive(std::span<std::byte> buffer) noexcept;
  // One datagram. Receiving one longer than `buffer` is an error (WSAEMSGSIZE, EMSGSIZE) and loses
  // the datagram.
  SocketResult SendTo(std::span<const std::byte> bytes, const SocketAddress& to) noexcept;
  SocketResult ReceiveFrom(std::span<std::byte> buffer, SocketAddress& from) noexcept;

  // Shuts the connection down, wakes every blocked call, waits for them to leave and closes the
  // handle. May be called twice, from any thread that is not inside a call.
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
