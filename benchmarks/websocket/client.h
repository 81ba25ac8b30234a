#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

namespace bench {

// A WebSocket client of one library, on a loopback port. Errors end the program.
class Client {
 public:
  virtual ~Client() = default;
  // Sends `count` binary messages of that many bytes as fast as the library accepts them.
  virtual void Send(std::size_t messageBytes, std::size_t count) = 0;
  // Waits for the next binary message and returns its length.
  virtual std::size_t Receive() = 0;
};

// The program's own relay connection. It sends as the tunnel's sender does: waiting messages
// together, up to 64 KiB in one piece.
std::unique_ptr<Client> ConnectOwn(std::uint16_t port);

// Boost.Beast with its fastest settings: no compression, no fragments, no strong random numbers for
// the masking keys, a buffer as long as the messages.
std::unique_ptr<Client> ConnectBeast(std::uint16_t port);

}  // namespace bench
