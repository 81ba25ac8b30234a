#pragma once

#include <cstddef>
#include <span>

#include "platform/socket.h"

namespace fuzz {

// The other end of every stream, in memory: memory_socket.cpp replaces platform/socket.cpp, so that
// a target scripts each call of a connection, without the system or other threads. Datagrams are
// not sent.
//
// Threads: one; the sockets' calls run on the thread that makes them.
class StreamPeer {
 public:
  virtual ~StreamPeer() = default;
  virtual int Connect() = 0;  // 0 or an error code
  virtual platform::SocketResult Send(std::span<const std::byte> bytes) = 0;
  virtual platform::SocketResult Receive(std::span<std::byte> buffer) = 0;
};

// Null removes it. Not owned.
void SetStreamPeer(StreamPeer* peer);

}  // namespace fuzz
