#include "platform/socket_address.h"

#include <algorithm>
#include <cstring>
#include <memory>

#include "platform/socket_sdk.h"

namespace platform {
SocketAddress SocketAddress::Ipv4(std::uint32_t address, std::uint16_t port) noexcept {
  sockaddr_in system{};
  system.sin_family = AF_INET;
  system.sin_port = htons(port);
  system.sin_addr.s_addr = htonl(address);
  return FromSystem(&system, sizeof(system));
}

SocketAddress SocketAddress::FromSystem(const void* address, std::size_t lengthBytes) noexcept {
  SocketAddress result;
  result.sizeBytes_ = std::min(lengthBytes, result.bytes_.size());
  std::memcpy(result.bytes_.data(), address, result.sizeBytes_);
  return result;
}

std::uint16_t SocketAddress::Port() const noexcept {
  // Both families keep it in the same place.
  static_assert(offsetof(sockaddr_in, sin_port) == offsetof(sockaddr_in6, sin6_port));
  if (Family() != AF_INET && Family() != AF_INET6) return 0;
  std::uint16_t portBe = 0;
  std::memcpy(&portBe, bytes_.data() + offsetof(sockaddr_in, sin_port), sizeof(portBe));
  return ntohs(portBe);
}

int SocketAddress::Family() const noexcept {
  return sizeBytes_ < sizeof(sockaddr_in) ? 0 : static_cast<const sockaddr*>(Data())->sa_family;
}

std::vector<SocketAddress> ResolveHost(const std::string& host, std::uint16_t port,
                                       SocketKind kind) {
  addrinfo hints{};
  const bool udp = kind == SocketKind::UdpIpv4;
  hints.ai_family = udp ? AF_INET : AF_UNSPEC;
  hints.ai_socktype = udp ? SOCK_DGRAM : SOCK_STREAM;
  hints.ai_protocol = udp ? IPPROTO_UDP : IPPROTO_TCP;
  addrinfo* found = nullptr;
  const int failed = ::getaddrinfo(host.c_str(), std::to_string(port).c_str(), &hints, &found);
  if (failed != 0) return {};
  const std::unique_ptr<addrinfo, decltype(&::freeaddrinfo)> owner(found, &::freeaddrinfo);
  std::vector<SocketAddress> addresses;
  for (const addrinfo* entry = found; entry != nullptr; entry = entry->ai_next) {
    addresses.push_back(SocketAddress::FromSystem(entry->ai_addr, entry->ai_addrlen));
  }
  return addresses;
}

}  // namespace platform
