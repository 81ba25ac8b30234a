#include <arpa/inet.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <cstring>
#include <exception>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "benchmarks/tunnel/ends.h"

// The minimum of a tunnel in user space: moves packets between a TUN device and one socket, with a
// thread per direction and one blocking call per packet. It changes no addresses and computes no
// checksums. Both ends run it.
//
//   floor udp TUN MTU PEER PORT          one packet a datagram; both ends have the same port
//   floor listen TUN MTU PORT            one packet after the other on a TCP connection, each
//   behind floor connect TUN MTU PEER PORT      its length in two bytes
namespace {

constexpr std::size_t kLengthBytes = 2;
constexpr std::size_t kReadBytes = 1 << 18;

using Buffer = std::vector<std::byte>;

// Packets that the system refuses are lost, in both directions; so are the first ones, until the
// other end is up.
void SendDatagrams(int tunnel, int socket) {
  Buffer buffer(bench::kMaxPacketBytes);
  for (;;) {
    const ssize_t bytes = ::read(tunnel, buffer.data(), buffer.size());
    if (bytes > 0) (void)::send(socket, buffer.data(), static_cast<std::size_t>(bytes), 0);
  }
}

void ReceiveDatagrams(int tunnel, int socket) {
  Buffer buffer(bench::kMaxPacketBytes);
  for (;;) {
    const ssize_t bytes = ::recv(socket, buffer.data(), buffer.size(), 0);
    if (bytes > 0 && ::write(tunnel, buffer.data(), static_cast<std::size_t>(bytes)) < 0) continue;
  }
}

void SendStream(int tunnel, int socket) {
  Buffer buffer(kLengthBytes + bench::kMaxPacketBytes);
  for (;;) {
    const ssize_t bytes = ::read(tunnel, &buffer[kLengthBytes], bench::kMaxPacketBytes);
    if (bytes <= 0) continue;
    const std::uint16_t length = htons(static_cast<std::uint16_t>(bytes));
    std::memcpy(buffer.data(), &length, sizeof(length));
    const auto whole = std::span(buffer).first(kLengthBytes + static_cast<std::size_t>(bytes));
    if (!bench::SendAll(socket, whole)) bench::EndProcess("The connection has ended");
  }
}

// Writes every whole packet of `bytes`; returns how many bytes those were.
std::size_t WritePackets(int tunnel, std::span<const std::byte> bytes) {
  std::size_t taken = 0;
  while (bytes.size() - taken >= kLengthBytes) {
    std::uint16_t length = 0;
    std::memcpy(&length, &bytes[taken], sizeof(length));
    const std::size_t packetBytes = ntohs(length);
    if (bytes.size() - taken - kLengthBytes < packetBytes) break;
    (void)!::write(tunnel, &bytes[taken] + kLengthBytes, packetBytes);
    taken += kLengthBytes + packetBytes;
  }
  return taken;
}

void ReceiveStream(int tunnel, int socket) {
  Buffer buffer(kReadBytes);
  std::size_t filled = 0;
  for (;;) {
    const ssize_t bytes = ::recv(socket, &buffer[filled], buffer.size() - filled, 0);
    if (bytes <= 0) bench::EndProcess("The connection has ended");
    filled += static_cast<std::size_t>(bytes);
    const std::size_t taken = WritePackets(tunnel, std::span(buffer).first(filled));
    filled -= taken;
    std::memmove(buffer.data(), &buffer[0] + taken, filled);
  }
}

std::uint16_t PortOf(const std::string& text) {
  return static_cast<std::uint16_t>(tun::ParseInteger(text, 1, 65535));
}

tun::File OpenSocket(const std::vector<std::string>& words) {
  const std::string& kind = words[0];
  if (kind == "listen" && words.size() == 4) return bench::AcceptTcp(PortOf(words[3]));
  if (words.size() == 5) {
    const sockaddr_in peer = bench::AddressOf(words[3], PortOf(words[4]));
    if (kind == "connect") return bench::ConnectTcp(peer);
    if (kind == "udp") {
      tun::File socket = bench::BindUdp(PortOf(words[4]));
      bench::ConnectTo(socket, peer);
      return socket;
    }
  }
  throw std::runtime_error("usage: floor udp|connect TUN MTU PEER PORT | listen TUN MTU PORT");
}

void Run(const std::vector<std::string>& words) {
  if (words.size() < 4) throw std::runtime_error("usage: floor KIND TUN MTU ...");
  const tun::File tunnel = bench::OpenWaitingTun(words[1], tun::ParseInteger(words[2], 576, 9000));
  const tun::File socket = OpenSocket(words);
  const bool isUdp = words[0] == "udp";
  std::thread sender(isUdp ? SendDatagrams : SendStream, tunnel.Get(), socket.Get());
  if (words[0] != "listen") bench::SayReady();
  (isUdp ? ReceiveDatagrams : ReceiveStream)(tunnel.Get(), socket.Get());
  sender.join();
}

}  // namespace

int main(int argc, char** argv) {
  try {
    Run(std::vector<std::string>(argv + 1, argv + argc));
    return 0;
  } catch (const std::exception& error) {
    std::fprintf(stderr, "floor: %s\n", error.what());
    return 1;
  }
}
