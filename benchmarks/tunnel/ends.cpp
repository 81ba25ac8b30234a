#include "benchmarks/tunnel/ends.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/tcp.h>
#include <sys/socket.h>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <stdexcept>
#include <thread>

namespace bench {
namespace {

constexpr int kConnectTries = 100;
constexpr std::chrono::milliseconds kConnectPause{50};

tun::File OpenSocket(int type) {
  tun::File socket(::socket(AF_INET, type | SOCK_CLOEXEC, 0));
  if (!socket) tun::Fail("Socket");
  for (const int option : {SO_SNDBUF, SO_RCVBUF}) {
    if (::setsockopt(socket.Get(), SOL_SOCKET, option, &kSocketBytes, sizeof(kSocketBytes)) != 0) {
      tun::Fail("Socket buffer");
    }
  }
  return socket;
}

void SetOption(const tun::File& socket, int level, int option) {
  const int on = 1;
  if (::setsockopt(socket.Get(), level, option, &on, sizeof(on)) != 0) tun::Fail("Socket option");
}

const sockaddr* Plain(const sockaddr_in& address) {
  return reinterpret_cast<const sockaddr*>(&address);
}

void Bind(const tun::File& socket, std::uint16_t port) {
  const sockaddr_in any = AddressOf("0.0.0.0", port);
  if (::bind(socket.Get(), Plain(any), sizeof(any)) != 0) tun::Fail("Port " + std::to_string(port));
}

}  // namespace

tun::File OpenWaitingTun(const std::string& name, int mtu) {
  tun::File device = tun::OpenTun(name, mtu);
  const int flags = ::fcntl(device.Get(), F_GETFL);
  if (flags < 0 || ::fcntl(device.Get(), F_SETFL, flags & ~O_NONBLOCK) != 0) tun::Fail("Waiting");
  return device;
}

sockaddr_in AddressOf(const std::string& dotted, std::uint16_t port) {
  sockaddr_in address = {};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  if (::inet_pton(AF_INET, dotted.c_str(), &address.sin_addr) != 1) {
    throw std::runtime_error("Not an address: " + dotted);
  }
  return address;
}

tun::File BindUdp(std::uint16_t port) {
  tun::File socket = OpenSocket(SOCK_DGRAM);
  Bind(socket, port);
  return socket;
}

void ConnectTo(const tun::File& socket, const sockaddr_in& peer) {
  if (::connect(socket.Get(), Plain(peer), sizeof(peer)) != 0) tun::Fail("Connecting");
}

tun::File AcceptTcp(std::uint16_t port) {
  const tun::File listener = OpenSocket(SOCK_STREAM);
  SetOption(listener, SOL_SOCKET, SO_REUSEADDR);
  Bind(listener, port);
  if (::listen(listener.Get(), 1) != 0) tun::Fail("Listening");
  SayReady();
  tun::File client(::accept4(listener.Get(), nullptr, nullptr, SOCK_CLOEXEC));
  if (!client) tun::Fail("Accepting");
  SetOption(client, IPPROTO_TCP, TCP_NODELAY);
  return client;
}

tun::File ConnectTcp(const sockaddr_in& peer) {
  for (int tries = 1;; ++tries) {
    tun::File socket = OpenSocket(SOCK_STREAM);
    SetOption(socket, IPPROTO_TCP, TCP_NODELAY);
    if (::connect(socket.Get(), Plain(peer), sizeof(peer)) == 0) return socket;
    if (tries == kConnectTries) tun::Fail("Connecting");
    std::this_thread::sleep_for(kConnectPause);
  }
}

bool SendAll(int socket, std::span<const std::byte> bytes) noexcept {
  while (!bytes.empty()) {
    const ssize_t sent = ::send(socket, bytes.data(), bytes.size(), MSG_NOSIGNAL);
    if (sent < 0 && errno == EINTR) continue;
    if (sent <= 0) return false;
    bytes = bytes.subspan(static_cast<std::size_t>(sent));
  }
  return true;
}

void SayReady() {
  std::puts("ready");
  std::fflush(stdout);
}

void EndProcess(const char* reason) noexcept {
  std::fprintf(stderr, "%s\n", reason);
  std::_Exit(1);
}

}  // namespace bench
