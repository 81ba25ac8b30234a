#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

// Socket addresses on Winsock and POSIX.
namespace platform {

enum class SocketKind {
  Tcp,      // stream, IPv4 or IPv6
  UdpIpv4,  // datagrams, IPv4 only
};

// An IPv4 or IPv6 address with a port, held as the system's sockaddr.
class SocketAddress {
 public:
  SocketAddress() noexcept = default;
  // `address` and `port` in host order.
  static SocketAddress Ipv4(std::uint32_t address, std::uint16_t port) noexcept;
  static SocketAddress Loopback(std::uint16_t port) noexcept { return Ipv4(0x7F000001, port); }
  // Copies a sockaddr of `lengthBytes`, at most 128 bytes.
  static SocketAddress FromSystem(const void* address, std::size_t lengthBytes) noexcept;

  // Host order; 0 when the address is neither IPv4 nor IPv6.
  [[nodiscard]] std::uint16_t Port() const noexcept;
  // AF_INET, AF_INET6; 0 when empty.
  [[nodiscard]] int Family() const noexcept;
  [[nodiscard]] const void* Data() const noexcept { return bytes_.data(); }
  [[nodiscard]] std::size_t SizeBytes() const noexcept { return sizeBytes_; }

 private:
  alignas(8) std::array<std::byte, 128> bytes_{};
  std::size_t sizeBytes_ = 0;
};

// Finds a host's addresses, in UTF-8; empty without any. May block as long as the system's
// resolver.
using HostLookup = std::function<std::vector<SocketAddress>(const std::string& host,
                                                            std::uint16_t port, SocketKind kind)>;

// getaddrinfo, in the system's order.
std::vector<SocketAddress> LookUpHost(const std::string& host, std::uint16_t port, SocketKind kind);

// Converts an address in digits, or else runs `lookUp` (LookUpHost when empty) on its own thread,
// because a resolver cannot be stopped. Polls `isCancelled` every few milliseconds; once it is
// true, returns no addresses and leaves the thread behind. Throws std::system_error when no thread
// can be created.
std::vector<SocketAddress> ResolveHost(const std::string& host, std::uint16_t port, SocketKind kind,
                                       const std::function<bool()>& isCancelled,
                                       const HostLookup& lookUp = {});

}  // namespace platform
