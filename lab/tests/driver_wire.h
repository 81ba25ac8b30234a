#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "tests/driver_library.h"

// What the tests of the stand-in library need around it: the bridge's side of its socket, and the
// PC's own address.

// The TUN bridge's side: a UDP socket on 127.0.0.1.
class Wire {
 public:
  Wire();
  ~Wire();
  Wire(const Wire&) = delete;
  Wire& operator=(const Wire&) = delete;
  [[nodiscard]] std::uint16_t Port() const { return port_; }
  void SendTo(std::uint16_t port, const std::vector<std::uint8_t>& packet) const;
  // The next datagram; empty after 5 seconds without one.
  [[nodiscard]] std::vector<std::uint8_t> Receive() const;

 private:
  SOCKET socket_ = INVALID_SOCKET;
  std::uint16_t port_ = 0;
};

struct OwnAddress {
  std::uint32_t address;  // host order
  std::uint32_t index;
};
// Of any adapter, another than loopback if there is one.
OwnAddress FindOwnAddress();

// Returns once the library has taken up all that `wire` sent before: a packet for a handle of its
// own, opened above all others, comes out of it last.
void WaitForQueued(const Library& library, const Wire& wire, std::uint16_t port);

// A UDP port on 127.0.0.1 that nobody uses now.
std::uint16_t FindFreePort();

std::string ReadText(const std::wstring& file);
