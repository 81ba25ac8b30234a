#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <span>
#include <string>

#include "platform/socket.h"

namespace tunnel {

// A socket that exchanges datagrams with one relay.
//
// Threads: any number may call at once; Close() wakes them.
// Errors:  in the results, as platform::Socket gives them.
class DatagramSocket {
 public:
  virtual ~DatagramSocket() = default;
  virtual void SetReceiveTimeout(std::chrono::milliseconds timeout) noexcept = 0;
  virtual platform::SocketResult Send(std::span<const std::byte> datagram) noexcept = 0;
  // One datagram, whoever sent it. One that is longer than `buffer` is an error, and gone.
  virtual platform::SocketResult Receive(std::span<std::byte> buffer) noexcept = 0;
  virtual void Close() noexcept = 0;
};

using DatagramSocketPointer = std::shared_ptr<DatagramSocket>;
using DatagramSocketOpener = std::function<DatagramSocketPointer(
    const std::wstring& serverUrl, std::chrono::milliseconds timeout,
    const std::function<bool()>& isCancelled)>;

// The socket towards the UDP relay, which has the host and the port of the central service's HTTP
// address (of the default service when `serverUrl` is empty). Both buffers have 4 MiB.
class RelayDatagramSocket final : public DatagramSocket {
 public:
  // `timeout` is for receiving and sending. Blocks while the system resolves the name, until
  // `isCancelled` returns true. Throws std::runtime_error:
  //   "WinHttpCrackUrl failed for URL: " and the address that could not be taken apart
  //   "getaddrinfo failed for UDP relay host."
  //   "UDP socket failed."
  RelayDatagramSocket(const std::wstring& serverUrl, std::chrono::milliseconds timeout,
                      const std::function<bool()>& isCancelled = {});

  void SetReceiveTimeout(std::chrono::milliseconds timeout) noexcept override;
  platform::SocketResult Send(std::span<const std::byte> datagram) noexcept override;
  platform::SocketResult Receive(std::span<std::byte> buffer) noexcept override;
  void Close() noexcept override { socket_->Close(); }

  // As the system holds them.
  [[nodiscard]] platform::Socket::Options SocketOptions() { return socket_->ReadOptions(); }

 private:
  platform::SocketLibrary library_;  // outlives the socket
  const std::chrono::milliseconds sendTimeout_;
  platform::SocketAddress relay_;
  std::shared_ptr<platform::Socket> socket_;
};

}  // namespace tunnel
