#include "tunnel/relay/test_udp_relay.h"

#include <array>
#include <stdexcept>

#include "tunnel/relay/fake_datagrams.h"

namespace tunnel {
namespace {}  // namespace

TestUdpRelay::TestUdpRelay(std::uint16_t port) {
  int error = library_.Start();
  socket_ = platform::Socket::Create(platform::SocketKind::UdpIpv4,
                                     platform::SocketAddress::Loopback(0).Family(), error);
  if (socket_ == nullptr || socket_->Bind(platform::SocketAddress::Loopback(port)) != 0) {
    throw std::runtime_error("the UDP port is taken");
  }
  thread_ = std::thread([this]() noexcept { Run(); });
}

TestUdpRelay::~TestUdpRelay() {
  socket_->Close();
  thread_.join();
}

void TestUdpRelay::Run() noexcept {
  std::array<std::byte, 2000> buffer;
  platform::SocketAddress from;
  const Bytes acknowledgement = AcknowledgementOf(kToken);
  for (;;) {
    const platform::SocketResult got = socket_->ReceiveFrom(buffer, from);
    if (platform::IsSocketClosed(got.error)) return;
    const auto datagram = std::span(buffer).first(got.bytes);
    if (datagram.size() < 5) continue;
    if (datagram[4] == std::byte{2}) {
      ++hellos_;
      if (answersHellos) socket_->SendTo(acknowledgement, from);
    } else if (datagram[4] == std::byte{4}) {
      ++packets_;
      socket_->SendTo(datagram, from);
    }
  }
}

}  // namespace tunnel
