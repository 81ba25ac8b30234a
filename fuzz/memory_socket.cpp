#include "memory_socket.h"

#include <sys/socket.h>

#include <cerrno>

namespace fuzz {
namespace {

StreamPeer* streamPeer = nullptr;

}  // namespace

void SetStreamPeer(StreamPeer* peer) {
  streamPeer = peer;
}

}  // namespace fuzz

namespace platform {

SocketLibrary::~SocketLibrary() = default;

int SocketLibrary::Start() noexcept {
  started_ = true;
  return 0;
}

bool IsSocketTimeout(int error) noexcept {
  return error == EAGAIN || error == ETIMEDOUT;
}

bool IsSocketClosed(int error) noexcept {
  return error == EBADF;
}

int SocketClosedError() noexcept {
  return EBADF;
}

std::shared_ptr<Socket> Socket::Create(SocketKind, int, int& error) {
  error = 0;
  return std::shared_ptr<Socket>(new Socket(0));
}

Socket::~Socket() = default;

int Socket::SetTimeouts(std::chrono::milliseconds, std::chrono::milliseconds) noexcept {
  return 0;
}

int Socket::SetNoDelay() noexcept {
  return 0;
}

int Socket::SetKeepAlive() noexcept {
  return 0;
}

int Socket::SetBufferBytes(int, int) noexcept {
  return 0;
}

Socket::Options Socket::ReadOptions() noexcept {
  return {};
}

// If a stop closes the socket during a call, the call still returns the peer's result.
int Socket::Connect(const SocketAddress&, std::chrono::milliseconds) noexcept {
  return fuzz::streamPeer->Connect();
}

SocketResult Socket::Send(std::span<const std::byte> bytes) noexcept {
  const MutexLock held(lock_);
  return closed_ ? SocketResult{0, EBADF} : fuzz::streamPeer->Send(bytes);
}

SocketResult Socket::Receive(std::span<std::byte> buffer) noexcept {
  {
    const MutexLock held(lock_);
    if (closed_) return {0, EBADF};
  }
  return fuzz::streamPeer->Receive(buffer);
}

SocketResult Socket::SendTo(std::span<const std::byte>, const SocketAddress&) noexcept {
  return {0, ENETDOWN};
}

SocketResult Socket::ReceiveFrom(std::span<std::byte>, SocketAddress&) noexcept {
  return {0, ENETDOWN};
}

void Socket::Close() noexcept {
  const MutexLock held(lock_);
  closed_ = true;
}

}  // namespace platform
