#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <thread>

#include "platform/socket.h"

namespace tunnel {

// A relay's UDP side on a loopback port: acknowledges every hello and echoes every packet.
//
// Threads: one inside; `answersHellos` may be set by any.
class TestUdpRelay {
 public:
  static constexpr std::uint64_t kToken = 0x0F1E2D3C4B5A6978;

  explicit TestUdpRelay(std::uint16_t port);
  ~TestUdpRelay();
  TestUdpRelay(const TestUdpRelay&) = delete;
  TestUdpRelay& operator=(const TestUdpRelay&) = delete;

  std::atomic<bool> answersHellos{true};
  [[nodiscard]] int Hellos() const { return hellos_; }
  [[nodiscard]] int Packets() const { return packets_; }

 private:
  void Run() noexcept;

  platform::SocketLibrary library_;
  std::shared_ptr<platform::Socket> socket_;
  std::atomic<int> hellos_{0};
  std::atomic<int> packets_{0};
  std::thread thread_;
};

}  // namespace tunnel
