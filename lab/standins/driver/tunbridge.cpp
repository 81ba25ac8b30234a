#include <arpa/inet.h>
#include <net/if.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>

#include "tun/tun_device.h"

// Joins a TUN device and a UDP port: one datagram per IPv4 packet, both ways.
//
//   tunbridge --tun NAME --listen IP:PORT [--peer IP:PORT] [--mtu N]
//
// Without --peer, packets go to the sender of the last datagram. Prints "ready" once the device is
// up and the port bound; SIGTERM and SIGINT end it (exit code 0), and the device with it.
namespace {

constexpr int kSocketBufferBytes = 8 * 1024 * 1024;
constexpr int kBatch = 64;  // packets from one side before the other side is served

using tun::Fail;
using tun::File;
using tun::ParseInteger;

struct Options {
  std::string tun;
  sockaddr_in listen = {};
  std::optional<sockaddr_in> peer;
  int mtu = 1500;
};

sockaddr_in ParseEndpoint(const std::string& text) {
  const auto colon = text.find(':');
  sockaddr_in endpoint = {};
  endpoint.sin_family = AF_INET;
  if (colon == std::string::npos ||
      ::inet_pton(AF_INET, text.substr(0, colon).c_str(), &endpoint.sin_addr) != 1) {
    throw std::runtime_error("Not IP:PORT: " + text);
  }
  const int port = ParseInteger(std::string_view(text).substr(colon + 1), 1, 65535);
  endpoint.sin_port = htons(static_cast<std::uint16_t>(port));
  return endpoint;
}

Options ParseOptions(std::span<char*> arguments) {
  Options options;
  for (std::size_t i = 1; i < arguments.size(); i += 2) {
    const std::string_view name = arguments[i];
    if (i + 1 == arguments.size()) throw std::runtime_error("No value for " + std::string(name));
    const std::string value = arguments[i + 1];
    if (name == "--tun") {
      options.tun = value;
    } else if (name == "--listen") {
      options.listen = ParseEndpoint(value);
    } else if (name == "--peer") {
      options.peer = ParseEndpoint(value);
    } else if (name == "--mtu") {
      options.mtu = ParseInteger(value, 68, 65535);
    } else {
      throw std::runtime_error("Unknown option " + std::string(name));
    }
  }
  if (options.tun.empty() || options.tun.size() >= IFNAMSIZ || options.listen.sin_port == 0) {
    throw std::runtime_error(
        "Usage: tunbridge --tun NAME --listen IP:PORT [--peer IP:PORT] [--mtu N]");
  }
  return options;
}

void EnlargeBuffer(int socket, int forced, int plain) {
  const auto set = [socket](int option) {
    return ::setsockopt(socket, SOL_SOCKET, option, &kSocketBufferBytes, sizeof(int)) == 0;
  };
  if (!set(forced)) set(plain);  // the plain option is capped at the system's limit
}

File OpenSocket(const sockaddr_in& listen) {
  File socket(::socket(AF_INET, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
  if (!socket) Fail("Socket");
  EnlargeBuffer(socket.Get(), SO_RCVBUFFORCE, SO_RCVBUF);
  EnlargeBuffer(socket.Get(), SO_SNDBUFFORCE, SO_SNDBUF);
  if (::bind(socket.Get(), reinterpret_cast<const sockaddr*>(&listen), sizeof(listen)) != 0) {
    Fail("Binding the listening port");
  }
  return socket;
}

bool IsSame(const sockaddr_in& a, const sockaddr_in& b) noexcept {
  return a.sin_addr.s_addr == b.sin_addr.s_addr && a.sin_port == b.sin_port;
}

class TunBridge {
 public:
  explicit TunBridge(const Options& options)
      : tun_(tun::OpenTun(options.tun, options.mtu)),
        socket_(OpenSocket(options.listen)),
        peer_(options.peer),
        isPeerFixed_(options.peer.has_value()) {}

  // Returns when a signal arrives.
  void Run(const File& signals) {
    std::array<pollfd, 3> files = {
        {{tun_.Get(), POLLIN, 0}, {socket_.Get(), POLLIN, 0}, {signals.Get(), POLLIN, 0}}};
    for (;;) {
      if (::poll(files.data(), files.size(), -1) < 0 && errno != EINTR) Fail("Waiting");
      if (files[2].revents != 0) return;
      if ((files[0].revents & (POLLERR | POLLHUP)) != 0) {
        throw std::runtime_error("The device is gone");
      }
      if (files[0].revents != 0) MoveFromTun();
      if (files[1].revents != 0) MoveFromSocket();
    }
  }

 private:
  static bool IsIpv4(std::span<const std::uint8_t> packet) noexcept {
    return !packet.empty() && packet[0] >> 4U == 4;
  }

  void MoveFromTun() {
    for (int i = 0; i < kBatch; ++i) {
      const ssize_t bytes = ::read(tun_.Get(), buffer_.data(), buffer_.size());
      if (bytes <= 0) return;
      const auto packet = std::span(buffer_).first(static_cast<std::size_t>(bytes));
      if (!peer_ || !IsIpv4(packet)) continue;
      // A packet that cannot be sent is lost, as on a cable; the peer may not run yet.
      ::sendto(socket_.Get(), packet.data(), packet.size(), 0,
               reinterpret_cast<const sockaddr*>(&*peer_), sizeof(*peer_));
    }
  }

  void MoveFromSocket() {
    for (int i = 0; i < kBatch; ++i) {
      sockaddr_in sender = {};
      socklen_t senderBytes = sizeof(sender);
      const ssize_t bytes = ::recvfrom(socket_.Get(), buffer_.data(), buffer_.size(), 0,
                                       reinterpret_cast<sockaddr*>(&sender), &senderBytes);
      if (bytes < 0) return;
      if (isPeerFixed_ && !IsSame(sender, *peer_)) continue;
      peer_ = sender;
      const auto packet = std::span(buffer_).first(static_cast<std::size_t>(bytes));
      // The device refuses malformed packets, which are lost.
      if (IsIpv4(packet)) static_cast<void>(!::write(tun_.Get(), packet.data(), packet.size()));
    }
  }

  File tun_;
  File socket_;
  std::optional<sockaddr_in> peer_;
  bool isPeerFixed_;
  std::array<std::uint8_t, 65536> buffer_ = {};
};

}  // namespace

int main(int argc, char** argv) {
  try {
    const Options options = ParseOptions(std::span(argv, static_cast<std::size_t>(argc)));
    const File signals = tun::OpenSignals();
    TunBridge bridge(options);
    std::puts("ready");
    std::fflush(stdout);
    bridge.Run(signals);
    return 0;
  } catch (const std::exception& error) {
    std::fprintf(stderr, "tunbridge: %s\n", error.what());
    return 1;
  }
}
