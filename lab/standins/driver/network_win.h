#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <span>
#include <vector>

#include "platform/unique_handle.h"
#include "platform/windows_sdk.h"

namespace driver {

struct BridgeSocketTraits {
  using Raw = SOCKET;
  static Raw Invalid() noexcept { return INVALID_SOCKET; }
  static bool IsValid(Raw socket) noexcept { return socket != INVALID_SOCKET; }
  static void Close(Raw socket) noexcept { ::closesocket(socket); }
};

struct BridgeThreadTraits {
  using Raw = HANDLE;
  static Raw Invalid() noexcept { return nullptr; }
  static bool IsValid(Raw thread) noexcept { return thread != nullptr; }
  static void Close(Raw thread) noexcept { ::CloseHandle(thread); }
};

// The connection to the TUN device: one UDP datagram on 127.0.0.1 per packet, both ways.
//
// Threads: Start() and Stop() by one caller at a time; Send() by any thread in between. The
// receiver
//          runs on the bridge's own thread, which keeps this library loaded.
class Bridge {
 public:
  // Called with each packet from the TUN device, valid during the call.
  using Receiver = std::function<void(std::span<const std::uint8_t> packet)>;

  Bridge() = default;
  ~Bridge() { Stop(); }
  Bridge(const Bridge&) = delete;
  Bridge& operator=(const Bridge&) = delete;

  // Binds `port` and sends to `peerPort`. Returns 0 or a Windows error code.
  std::uint32_t Start(std::uint16_t port, std::uint16_t peerPort, Receiver receiver);
  // Ends the thread; the receiver is not called afterwards. Harmless when not started.
  void Stop() noexcept;
  // A packet that the peer cannot accept now is lost, as on a cable.
  void Send(std::span<const std::uint8_t> packet) noexcept;

 private:
  std::uint32_t StartThread();
  [[noreturn]] static DWORD WINAPI Run(void* bridge) noexcept;
  void ReceiveLoop();

  platform::UniqueHandle<BridgeSocketTraits> socket_;
  platform::UniqueHandle<BridgeThreadTraits> thread_;
  sockaddr_in peer_ = {};
  Receiver receiver_;
  volatile LONG stopping_ = 0;
  HMODULE library_ = nullptr;  // freed by the thread
  bool hasSockets_ = false;    // WSAStartup was called
};

// A cached list of the adapters and their IPv4 addresses.
//
// Threads: none inside; the owner locks. Addresses are in host order; index 0 means none.
class Adapters {
 public:
  [[nodiscard]] std::uint32_t FindByAddress(std::uint32_t address, std::int64_t nowMs);
  [[nodiscard]] bool Exists(std::uint32_t index, std::int64_t nowMs);
  // The adapter through which `destination` is reached.
  [[nodiscard]] static std::uint32_t FindRoute(std::uint32_t destination);

 private:
  struct Entry {
    std::uint32_t address;
    std::uint32_t index;
  };
  // Reads the list from the system, at most once a second; false if it was too early.
  bool Refresh(std::int64_t nowMs);

  std::vector<Entry> entries_;
  std::int64_t readMs_ = 0;
  bool wasRead_ = false;
};

}  // namespace driver
