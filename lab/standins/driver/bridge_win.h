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

// The way to the TUN device: one UDP datagram on 127.0.0.1 per packet, both ways.
//
// Threads: Start() and Stop() by one caller at a time; Send() by any thread in between. Received
//          packets are handed over on the bridge's own thread, which keeps this library loaded.
class Bridge {
 public:
  // A packet that came from the TUN; valid during the call.
  using Receiver = std::function<void(std::span<const std::uint8_t> packet)>;

  Bridge() = default;
  ~Bridge() { Stop(); }
  Bridge(const Bridge&) = delete;
  Bridge& operator=(const Bridge&) = delete;

  // Binds `port` and sends to `peerPort`. 0, or the Windows error code of what failed.
  std::uint32_t Start(std::uint16_t port, std::uint16_t peerPort, Receiver receiver);
  // Ends the thread; no packet is handed over after it returns. Harmless when not started.
  void Stop() noexcept;
  // A packet that the other side cannot take now is lost, as on a cable.
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

}  // namespace driver
