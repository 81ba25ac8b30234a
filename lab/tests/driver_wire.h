#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "tests/driver_library.h"

// The surroundings of the stand-in library in tests: the bridge's side of its socket, and the PC's
// own address.

// The TUN bridge's side: a UDP socket on 127.0.0.1.
class Wire {
 public:
  Wire();
  ~Wire();
  Wire(const Wire&) = delete;
  Wire& operator=(const Wire&) = delete;
  [[nodiscard]] std::uint16_t Port() const { return port_; }
  void SendTo(std::uint16_t port, const std::vector<std::uint8_t>& packet) const;
  // Waits for the next datagram; empty after 5 seconds.
  [[nodiscard]] std::vector<std::uint8_t> Receive() const;

 private:
  SOCKET socket_ = INVALID_SOCKET;
  std::uint16_t port_ = 0;
};

struct OwnAddress {
  std::uint32_t address;  // host order
  std::uint32_t index;
};
// Of any adapter, preferably not loopback.
OwnAddress FindOwnAddress();

// Returns once the library has received everything that `wire` sent before: a final packet goes to
// its own handle, opened above all others.
void WaitForQueued(const Library& library, const Wire& wire, std::uint16_t port);

// A currently unused UDP port on 127.0.0.1.
std::uint16_t FindFreePort();

std::string ReadText(const std::wstring& file);
