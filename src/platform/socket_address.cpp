#include "platform/socket_address.h"

#include <algorithm>
#include <chrono>
#include <cstring>
#include <exception>
#include <memory>
#include <optional>
#include <utility>

#include "platform/detached_thread.h"
#include "platform/mutex.h"
#include "platform/socket.h"
#include "platform/socket_system.h"

namespace platform {
namespace {

constexpr std::chrono::milliseconds kLookEvery{20};

// Passes addresses from the lookup thread to the caller, which may have left. Any thread.
class Answer {
 public:
  void Put(std::vector<SocketAddress> addresses) {
    {
      const MutexLock held(lock_);
      addresses_ = std::move(addresses);
    }
    put_.NotifyAll();
  }

  // Blocks for the addresses; empty once `isCancelled` returns true.
  std::vector<SocketAddress> Take(const std::function<bool()>& isCancelled) {
    const MutexLock held(lock_);
    while (!addresses_) {
      if (isCancelled && isCancelled()) return {};
      put_.WaitFor(lock_, kLookEvery);
    }
    return *std::move(addresses_);
  }

 private:
  Mutex lock_;
  Condition put_;
  std::optional<std::vector<SocketAddress>> addresses_ GUARDED_BY(lock_);
};

std::vector<SocketAddress> GetAddresses(const std::string& host, std::uint16_t port,
                                        SocketKind kind, int flags) {
  addrinfo hints{};
  const bool udp = kind == SocketKind::UdpIpv4;
  hints.ai_flags = flags;
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

}  // namespace

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
  // At the same offset in both families.
  static_assert(offsetof(sockaddr_in, sin_port) == offsetof(sockaddr_in6, sin6_port));
  if (Family() != AF_INET && Family() != AF_INET6) return 0;
  std::uint16_t portBe = 0;
  std::memcpy(&portBe, bytes_.data() + offsetof(sockaddr_in, sin_port), sizeof(portBe));
  return ntohs(portBe);
}

int SocketAddress::Family() const noexcept {
  return sizeBytes_ < sizeof(sockaddr_in) ? 0 : static_cast<const sockaddr*>(Data())->sa_family;
}

std::vector<SocketAddress> LookUpHost(const std::string& host, std::uint16_t port,
                                      SocketKind kind) {
  return GetAddresses(host, port, kind, 0);
}

std::vector<SocketAddress> ResolveHost(const std::string& host, std::uint16_t port, SocketKind kind,
                                       const std::function<bool()>& isCancelled,
                                       const HostLookup& lookUp) {
  // An address in digits needs neither resolver nor thread.
  std::vector<SocketAddress> plain = GetAddresses(host, port, kind, AI_NUMERICHOST);
  if (!plain.empty()) return plain;
  // Shared, because a cancelled caller leaves while the resolver still runs.
  const auto answer = std::make_shared<Answer>();
  StartDetached([answer, host, port, kind, lookUp] {
    std::vector<SocketAddress> addresses;
    try {
      SocketLibrary library;  // the caller's may be destroyed by then
      if (library.Start() == 0) {
        addresses = lookUp ? lookUp(host, port, kind) : LookUpHost(host, port, kind);
      }
    } catch (const std::exception&) {
      // Out of memory; treated as an unknown name.
    }
    answer->Put(std::move(addresses));
  });
  return answer->Take(isCancelled);
}

}  // namespace platform
