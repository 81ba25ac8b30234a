#pragma once

// The bridge's side of the stand-in's link, for tests without a browser: accepts connections one
// after another, keeps the DLL's frames and sends the test's. Written from the frame
// table: u32 body length, u8 kind, body; little endian.

#include "platform/windows_sdk.h"

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <optional>
#include <string>
#include <thread>

inline std::string Le32(uint32_t value) {
  std::string bytes;
  for (int shift = 0; shift < 32; shift += 8) bytes.push_back(static_cast<char>(value >> shift));
  return bytes;
}

class FakeBridge {
 public:
  struct Received {
    uint8_t kind;
    std::string body;
  };

  FakeBridge() {
    WSADATA data;
    ::WSAStartup(MAKEWORD(2, 2), &data);
    listener_ = ::socket(AF_INET, SOCK_STREAM, IPPROTO_TCP);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = ::htonl(INADDR_LOOPBACK);
    ::bind(listener_, reinterpret_cast<const sockaddr*>(&address), sizeof(address));
    int size = sizeof(address);
    ::getsockname(listener_, reinterpret_cast<sockaddr*>(&address), &size);
    port_ = ::ntohs(address.sin_port);
    ::listen(listener_, 4);
    thread_ = std::thread([this] { Serve(); });
  }
  ~FakeBridge() {
    stopping_ = true;
    ::closesocket(listener_);
    thread_.join();
    ::WSACleanup();
  }
  FakeBridge(const FakeBridge&) = delete;
  FakeBridge& operator=(const FakeBridge&) = delete;

  [[nodiscard]] uint16_t Port() const { return port_; }
  // The answer to a connection's first frame; 0 for none.
  std::atomic<uint8_t> answer{101};

  void Send(uint8_t kind, const std::string& body) {
    const std::string bytes =
        Le32(static_cast<uint32_t>(body.size())) + static_cast<char>(kind) + body;
    ::send(peer_, bytes.data(), static_cast<int>(bytes.size()), 0);
  }

  // Ends the connection, as the bridge does after its browser's exit.
  void HangUp() { ::shutdown(peer_, SD_BOTH); }

  // Waits for the next frame of that kind and drops others before it; empty after five seconds.
  std::optional<Received> Next(uint8_t kind) {
    std::unique_lock guard(lock_);
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(5);
    for (;;) {
      while (!received_.empty()) {
        Received frame = std::move(received_.front());
        received_.pop_front();
        if (frame.kind == kind) return frame;
      }
      if (arrived_.wait_until(guard, end) == std::cv_status::timeout) return std::nullopt;
    }
  }

 private:
  void Serve() {
    while (!stopping_) {
      peer_ = ::accept(listener_, nullptr, nullptr);
      if (peer_ == INVALID_SOCKET) return;
      for (bool first = true;; first = false) {
        std::string head = Read(5);
        if (head.size() < 5) break;
        uint32_t size = 0;
        for (size_t i = 4; i-- > 0;) size = size << 8 | static_cast<uint8_t>(head[i]);
        Received frame{static_cast<uint8_t>(head[4]), Read(size)};
        const uint8_t reply = answer;
        if (first && reply != 0) Send(reply, Le32(1));
        const std::lock_guard guard(lock_);
        received_.push_back(std::move(frame));
        arrived_.notify_all();
      }
      ::closesocket(peer_);
      ++closed;
    }
  }

  std::string Read(size_t size) const {
    std::string bytes(size, '\0');
    for (size_t done = 0; done < size;) {
      const int count = ::recv(peer_, bytes.data() + done, static_cast<int>(size - done), 0);
      if (count <= 0) return {};
      done += static_cast<size_t>(count);
    }
    return bytes;
  }

  SOCKET listener_ = INVALID_SOCKET;
  std::atomic<SOCKET> peer_{INVALID_SOCKET};
  uint16_t port_ = 0;
  std::atomic<bool> stopping_{false};
  std::mutex lock_;  // guards received_
  std::condition_variable arrived_;
  std::deque<Received> received_;
  std::thread thread_;

 public:
  std::atomic<int> closed{0};  // connections ended by the DLL
};
