#pragma once

#include "platform/windows_sdk.h"
// The SDK before everything else.
#include <cstdint>
#include <mutex>
#include <string>

#include "wire.h"

namespace browser {

struct Frame {
  ToHost kind;
  std::string body;
};

// The TCP connection to the bridge.
//
// Threads: Connect() and Receive() on one reading thread; Send() and Close() on any.
// Errors:  false; the link is dead then and stays so.
class Link {
 public:
  Link();
  ~Link();
  Link(const Link&) = delete;
  Link& operator=(const Link&) = delete;

  [[nodiscard]] bool Connect(uint16_t port);
  bool Send(FromHost kind, const BodyWriter& body);
  // Waits for the next frame.
  [[nodiscard]] bool Receive(Frame& frame);
  // Ends the connection and wakes the reading thread. The only place that closes the socket.
  void Close();

 private:
  bool ReceiveBytes(char* bytes, size_t size);
  SOCKET Current();

  std::mutex sendLock_;    // one frame at a time
  std::mutex socketLock_;  // guards socket_ and closed_
  SOCKET socket_ = INVALID_SOCKET;
  bool closed_ = false;
};

}  // namespace browser
