#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <exception>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "benchmarks/tunnel/ends.h"
#include "benchmarks/tunnel/relay_streams.h"
#include "tunnel/packets/bytes.h"
#include "tunnel/relay/udp_datagram.h"

// The relay and the site's end of the tunnel in one, for one client: moves packets between the
// client and a TUN device. Both directions gather waiting packets, so the relay is faster than any
// client that sends packet by packet.
//
//   relay TUN MTU PORT udp|websocket
//
// udp: acknowledges hellos on the same port number and from then on sends small packets by UDP.
// websocket: does not listen for datagrams.
namespace {

using Clock = std::chrono::steady_clock;

constexpr std::uint64_t kToken = 0x56454C4D4152494E;
constexpr std::uint8_t kHelloType = 2;
constexpr std::uint8_t kAcknowledgementType = 3;
constexpr std::size_t kTypeAt = 4;
constexpr std::size_t kAcknowledgementBytes = 14;
constexpr std::size_t kDatagrams = 64;
constexpr std::size_t kDatagramBytes = 2048;
constexpr std::chrono::seconds kPingPeriod{2};  // a client gives a silent relay 8 s
constexpr int kPollMs = 500;

// Contains the accept value for RFC 6455's sample key, which the client sends.
constexpr std::string_view kUpgraded =
    "HTTP/1.1 101 Switching Protocols\r\nUpgrade: websocket\r\nConnection: Upgrade\r\n"
    "Sec-WebSocket-Accept: s3pPLMBiTxaQ9kYGzzhZRbK+xOo=\r\n\r\n";

void Upgrade(int client) {
  std::string request;
  char byte = 0;
  while (!request.ends_with("\r\n\r\n")) {
    if (::recv(client, &byte, 1, 0) != 1) throw std::runtime_error("No whole request");
    request += byte;
  }
  if (!bench::SendAll(client, std::as_bytes(std::span(kUpgraded)))) tun::Fail("Upgrading");
}

void WritePacket(int device, std::span<const std::byte> packet) {
  (void)!::write(device, packet.data(), packet.size());
}

void TakeFrames(int client, int device) {
  bench::ClientFrames frames;
  for (;;) {
    const std::span<std::byte> room = frames.Room();
    const ssize_t bytes = ::recv(client, room.data(), room.size(), 0);
    if (bytes <= 0) throw std::runtime_error("The client is gone");
    frames.Take(static_cast<std::size_t>(bytes));
    for (auto packet = frames.Next(); !packet.empty(); packet = frames.Next()) {
      WritePacket(device, packet);
    }
  }
}

void Acknowledge(int udp, std::span<const std::byte> hello) {
  std::array<std::byte, kAcknowledgementBytes> answer = {};
  tunnel::WriteU32Be(answer, 0, tunnel::ReadU32Be(hello, 0));
  tunnel::WriteU8(answer, kTypeAt, kAcknowledgementType);
  tunnel::WriteU8(answer, kTypeAt + 1, tunnel::kRelayModeHello);
  tunnel::WriteU64Be(answer, kTypeAt + 2, kToken);
  (void)::send(udp, answer.data(), answer.size(), 0);
}

// Receives up to kDatagrams datagrams per call.
class DatagramReader {
 public:
  explicit DatagramReader(int udp) : udp_(udp), slots_(kDatagrams * kDatagramBytes) {
    for (std::size_t i = 0; i < kDatagrams; ++i) {
      parts_[i] = {&slots_[i * kDatagramBytes], kDatagramBytes};
      messages_[i].msg_hdr.msg_iov = &parts_[i];
      messages_[i].msg_hdr.msg_iovlen = 1;
      messages_[i].msg_hdr.msg_name = &from_[i];
    }
  }

  template <typename Take>  // void(std::span<std::byte> datagram, const sockaddr_in& from)
  void Receive(Take take) {
    for (mmsghdr& message : messages_) message.msg_hdr.msg_namelen = sizeof(sockaddr_in);
    const int count = ::recvmmsg(udp_, messages_.data(), kDatagrams, MSG_WAITFORONE, nullptr);
    for (std::size_t i = 0; count > 0 && i < static_cast<std::size_t>(count); ++i) {
      take(std::span(slots_).subspan(i * kDatagramBytes, messages_[i].msg_len), from_[i]);
    }
  }

 private:
  const int udp_;
  std::vector<std::byte> slots_;
  std::array<iovec, kDatagrams> parts_ = {};
  std::array<sockaddr_in, kDatagrams> from_ = {};
  std::array<mmsghdr, kDatagrams> messages_ = {};
};

// The first hello connects the socket to its sender. Otherwise the system would look up a route for
// every datagram; over a virtual cable that is charged to the client, whose processor time is
// measured.
void TakeDatagrams(const tun::File& udp, int device, std::atomic<bool>& hasEndpoint) {
  DatagramReader reader(udp.Get());
  for (;;) {
    reader.Receive([&](std::span<std::byte> datagram, const sockaddr_in& from) {
      if (const auto packet = tunnel::ParseUdpPacket(datagram, kToken)) {
        WritePacket(device, *packet);
      } else if (datagram.size() > kTypeAt && tunnel::ReadU8(datagram, kTypeAt) == kHelloType) {
        if (!hasEndpoint) bench::ConnectTo(udp, from);
        hasEndpoint = true;
        Acknowledge(udp.Get(), datagram);
      }
    });
  }
}

// The device's reads do not block, so everything available is gathered before it is sent.
void TakeSitePackets(int device, bench::Downlink& downlink, const std::atomic<bool>& hasEndpoint) {
  Clock::time_point pinged = Clock::now();
  for (bool isAlive = true; isAlive;) {
    const std::span<std::byte> room = downlink.Room();
    const ssize_t bytes = ::read(device, room.data(), room.size());
    if (bytes > 0) {
      downlink.Take(static_cast<std::size_t>(bytes), hasEndpoint);
      if (downlink.IsFull()) isAlive = downlink.Flush();
      continue;
    }
    isAlive = downlink.Flush();
    pollfd waiting = {device, POLLIN, 0};
    (void)::poll(&waiting, 1, kPollMs);
    const Clock::time_point now = Clock::now();
    if (now - pinged < kPingPeriod) continue;
    pinged = now;
    isAlive = isAlive && downlink.SendPing();
  }
  bench::EndProcess("relay: the client is gone");
}

void Run(const std::vector<std::string>& words) {
  if (words.size() != 4 || (words[3] != "udp" && words[3] != "websocket")) {
    throw std::runtime_error("usage: relay TUN MTU PORT udp|websocket");
  }
  const tun::File device = tun::OpenTun(words[0], tun::ParseInteger(words[1], 576, 9000));
  const auto port = static_cast<std::uint16_t>(tun::ParseInteger(words[2], 1, 65535));
  tun::File udp;
  if (words[3] == "udp") udp = bench::BindUdp(port);
  const tun::File client = bench::AcceptTcp(port);
  Upgrade(client.Get());
  std::atomic<bool> hasEndpoint{false};
  bench::Downlink downlink(client.Get(), udp.Get(), kToken);
  std::thread fromSite([&]() { TakeSitePackets(device.Get(), downlink, hasEndpoint); });
  std::thread datagrams;
  if (udp) datagrams = std::thread([&]() { TakeDatagrams(udp, device.Get(), hasEndpoint); });
  try {
    TakeFrames(client.Get(), device.Get());
  } catch (const std::exception& error) {
    bench::EndProcess(error.what());
  }
}

}  // namespace

int main(int argc, char** argv) {
  try {
    Run(std::vector<std::string>(argv + 1, argv + argc));
  } catch (const std::exception& error) {
    std::fprintf(stderr, "relay: %s\n", error.what());
  }
  return 1;
}
