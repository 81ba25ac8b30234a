#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "platform/socket.h"

namespace tunnel {

// What travels between program and relay by UDP. Every datagram begins with the four bytes "TNR1"
// and one byte that tells its type; numbers are big-endian. Pure, any thread.

// The longest packet that goes by UDP: with IP, UDP and relay headers it still fits an Ethernet
// frame of 1400 bytes, so it is not cut on the way.
inline constexpr std::size_t kMaxUdpPacketBytes = 1330;
// Magic, type and token, before each packet.
inline constexpr std::size_t kUdpHeaderBytes = 13;
// The longest datagram that is taken from the relay.
inline constexpr std::size_t kMaxUdpDatagramBytes = 1400;

// What a hello asks for; the relay's acknowledgement repeats it.
inline constexpr std::uint8_t kRelayModeHello = 2;

// Says whose tunnel this is: type 2, then both texts as UTF-8 without surrounding white space, each
// behind its length in two bytes. A text of more than 65535 bytes is cut there.
std::vector<std::byte> BuildHello(std::wstring_view connectionId, std::wstring_view engineerId);

// The token of an acknowledgement of our hello: 14 bytes, type 3, the hello's type, the token.
// Empty for everything else, a zero token included.
std::optional<std::uint64_t> ParseAcknowledgement(std::span<const std::byte> datagram);

// The packet in a datagram of 14 to 1400 bytes, type 4, with this token; a view into `datagram`.
// Empty for everything else and when `token` is zero, which no relay hands out.
std::optional<std::span<std::byte>> ParseUdpPacket(std::span<std::byte> datagram,
                                                   std::uint64_t token);

// Writes header and packet, type 4, to the start of `datagram` and returns that part. `datagram`
// must have room for both.
std::span<const std::byte> WriteUdpPacket(std::span<std::byte> datagram, std::uint64_t token,
                                          std::span<const std::byte> packet);

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
