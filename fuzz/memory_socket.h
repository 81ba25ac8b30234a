#pragma once

#include <cstddef>
#include <span>

#include "platform/socket.h"

namespace fuzz {

// The other end of every stream, in memory: memory_socket.cpp stands in the place of
// platform/socket.cpp, so that a target decides what a connection brings, call by call, and neither
// the system nor a thread comes between. Datagrams are not sent.
//
// Threads: one; the sockets' calls run on the thread that makes them.
class StreamPeer {
 public:
  virtual ~StreamPeer() = default;
  virtual int Connect() = 0;  // 0 or an error code
  virtual platform::SocketResult Send(std::span<const std::byte> bytes) = 0;
  virtual platform::SocketResult Receive(std::span<std::byte> buffer) = 0;
};

// Null takes it away; kept, not owned.
void SetStreamPeer(StreamPeer* peer);

}  // namespace fuzz
