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

// The relay's UDP protocol: every datagram starts with the four bytes "TNR1" and a type byte;
// numbers are big-endian. The functions are pure and run on any thread.

// The longest packet sent by UDP: with IP, UDP and relay headers it still fits an Ethernet frame of
// 1400 bytes, so it is not fragmented.
inline constexpr std::size_t kMaxUdpPacketBytes = 1330;
// Magic, type and token, before each packet.
inline constexpr std::size_t kUdpHeaderBytes = 13;
// The longest datagram accepted from the relay.
inline constexpr std::size_t kMaxUdpDatagramBytes = 1400;

// The hello's type; the acknowledgement repeats it.
inline constexpr std::uint8_t kRelayModeHello = 2;

// Identifies the tunnel: type 2, then both texts as trimmed UTF-8, each preceded by its length in
// two bytes and truncated to 65535 bytes.
std::vector<std::byte> BuildHello(std::wstring_view connectionId, std::wstring_view engineerId);

// Returns the token of an acknowledgement: 14 bytes, type 3, the hello's type, the token. Empty for
// anything else, including a zero token.
std::optional<std::uint64_t> ParseAcknowledgement(std::span<const std::byte> datagram);

// Returns the packet inside a datagram of 14 to 1400 bytes, type 4, with this token, as a view into
// `datagram`. Empty for anything else and for a zero `token`, which no relay assigns.
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
  // Receives one datagram from any sender. One longer than `buffer` is an error and is lost.
  virtual platform::SocketResult Receive(std::span<std::byte> buffer) noexcept = 0;
  virtual void Close() noexcept = 0;
};

using DatagramSocketPointer = std::shared_ptr<DatagramSocket>;

// A socket to the UDP relay, which shares host and port with the central service's HTTP address
// (the default service's if `serverUrl` is empty). Both buffers have 4 MiB.
class RelayDatagramSocket final : public DatagramSocket {
 public:
  // `timeout` applies to receiving and sending. Blocks while the system resolves the name, until
  // `isCancelled` returns true. Throws std::runtime_error:
  //   "WinHttpCrackUrl failed for URL: " and the invalid address
  //   "getaddrinfo failed for UDP relay host."
  //   "UDP socket failed."
  RelayDatagramSocket(const std::wstring& serverUrl, std::chrono::milliseconds timeout,
                      const std::function<bool()>& isCancelled = {});

  void SetReceiveTimeout(std::chrono::milliseconds timeout) noexcept override;
  platform::SocketResult Send(std::span<const std::byte> datagram) noexcept override;
  platform::SocketResult Receive(std::span<std::byte> buffer) noexcept override;
  void Close() noexcept override { socket_->Close(); }

  // As reported by the system.
  [[nodiscard]] platform::Socket::Options SocketOptions() { return socket_->ReadOptions(); }

 private:
  platform::SocketLibrary library_;  // outlives the socket
  const std::chrono::milliseconds sendTimeout_;
  platform::SocketAddress relay_;
  std::shared_ptr<platform::Socket> socket_;
};

using DatagramSocketOpener = std::function<DatagramSocketPointer(
    const std::wstring& serverUrl, std::chrono::milliseconds timeout,
    const std::function<bool()>& isCancelled)>;

// Opens a RelayDatagramSocket; throws as its constructor.
DatagramSocketPointer OpenRelaySocket(const std::wstring& serverUrl,
                                      std::chrono::milliseconds timeout,
                                      const std::function<bool()>& isCancelled);

}  // namespace tunnel
