#pragma once

#include <algorithm>
#include <chrono>
#include <cstddef>

#ifdef _WIN32
#include "platform/windows_sdk.h"
#else
#include <arpa/inet.h>
#include <fcntl.h>
#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <cerrno>
#endif

// The differences between the two systems' sockets; only for this folder.
namespace platform::socket_system {

#ifdef _WIN32

using Raw = SOCKET;
using Length = int;
inline constexpr int kSendFlags = 0;
inline constexpr int kDatagramFlags = 0;
inline constexpr int kClosed = WSAENOTSOCK;
inline constexpr int kTooLong = WSAEMSGSIZE;
inline constexpr int kTimedOut = WSAETIMEDOUT;
inline constexpr int kConnecting = WSAEWOULDBLOCK;

inline bool IsValid(Raw raw) noexcept {
  return raw != INVALID_SOCKET;
}
inline int LastError() noexcept {
  return ::WSAGetLastError();
}
inline void CloseRaw(Raw raw) noexcept {
  ::closesocket(raw);
}
inline int ShutDown(Raw raw) noexcept {
  return ::shutdown(raw, SD_BOTH);
}
// Here shutdown() does not wake a blocked receive. Cancelling it does, without closing the handle.
inline void Wake(Raw raw) noexcept {
  ::CancelIoEx(reinterpret_cast<HANDLE>(raw), nullptr);
}
inline Length ToLength(std::size_t size) noexcept {
  return static_cast<Length>(std::min<std::size_t>(size, 0x7FFFFFFF));
}
inline int SetBlocking(Raw raw, bool blocks) noexcept {
  u_long isNonBlocking = blocks ? 0 : 1;
  return ::ioctlsocket(raw, static_cast<long>(FIONBIO), &isNonBlocking) == 0 ? 0 : LastError();
}
// Waits for a pending connect. Positive once it has succeeded or failed, 0 after `time`, negative
// on failure with the last error set.
inline int AwaitConnect(Raw raw, std::chrono::milliseconds time) noexcept {
  // Not WSAPoll(): on older systems it does not report a failed connect.
  fd_set writable;
  FD_ZERO(&writable);
  FD_SET(raw, &writable);
  fd_set failed = writable;
  timeval limit{0, static_cast<decltype(timeval::tv_usec)>(time.count() * 1000)};
  return ::select(0, nullptr, &writable, &failed, &limit);
}

using TimeValue = DWORD;
inline TimeValue ToTimeValue(std::chrono::milliseconds time) noexcept {
  return static_cast<TimeValue>(time.count());
}
inline std::chrono::milliseconds FromTimeValue(TimeValue value) noexcept {
  return std::chrono::milliseconds(value);
}

#else

using Raw = int;
using Length = std::size_t;
inline constexpr int kSendFlags = MSG_NOSIGNAL;
inline constexpr int kDatagramFlags = MSG_TRUNC;  // return the full length of a cut datagram
inline constexpr int kClosed = EBADF;
inline constexpr int kTooLong = EMSGSIZE;
inline constexpr int kTimedOut = ETIMEDOUT;
inline constexpr int kConnecting = EINPROGRESS;

inline bool IsValid(Raw raw) noexcept {
  return raw >= 0;
}
inline int LastError() noexcept {
  return errno;
}
inline void CloseRaw(Raw raw) noexcept {
  ::close(raw);
}
inline int ShutDown(Raw raw) noexcept {
  return ::shutdown(raw, SHUT_RDWR);
}
// Here close() does not wake a blocked call, but shutdown() does. Repeated for a connect() that was
// entered after the first one.
inline void Wake(Raw raw) noexcept {
  ShutDown(raw);
}
inline Length ToLength(std::size_t size) noexcept {
  return size;
}
inline int SetBlocking(Raw raw, bool blocks) noexcept {
  const int flags = ::fcntl(raw, F_GETFL);
  const int wanted = blocks ? flags & ~O_NONBLOCK : flags | O_NONBLOCK;
  return ::fcntl(raw, F_SETFL, wanted) == 0 ? 0 : LastError();
}
inline int AwaitConnect(Raw raw, std::chrono::milliseconds time) noexcept {
  pollfd entry{raw, POLLOUT, 0};
  const int ended = ::poll(&entry, 1, static_cast<int>(time.count()));
  return ended < 0 && errno == EINTR ? 0 : ended;
}

using TimeValue = timeval;
inline TimeValue ToTimeValue(std::chrono::milliseconds time) noexcept {
  TimeValue value{};
  value.tv_sec = static_cast<decltype(value.tv_sec)>(time.count() / 1000);
  value.tv_usec = static_cast<decltype(value.tv_usec)>(time.count() % 1000 * 1000);
  return value;
}
inline std::chrono::milliseconds FromTimeValue(TimeValue value) noexcept {
  return std::chrono::milliseconds(value.tv_sec * 1000 + value.tv_usec / 1000);
}

#endif

}  // namespace platform::socket_system
