#include "tunnel/relay/datagram_socket.h"

#include <stdexcept>
#include <vector>

#include "text/utf8.h"
#include "tunnel/relay/relay_url.h"

namespace tunnel {
namespace {

constexpr int kBufferBytes = 4194304;

}  // namespace

RelayDatagramSocket::RelayDatagramSocket(const std::wstring& serverUrl,
                                         std::chrono::milliseconds timeout,
                                         const std::function<bool()>& isCancelled)
    : sendTimeout_(timeout) {
  const ServiceEndpoint endpoint = ParseServiceEndpoint(serverUrl);
  std::vector<platform::SocketAddress> addresses;
  if (library_.Start() == 0) {
    addresses = platform::ResolveHost(text::ToUtf8(endpoint.host), endpoint.port,
                                      platform::SocketKind::UdpIpv4, isCancelled);
  }
  if (addresses.empty()) throw std::runtime_error("getaddrinfo failed for UDP relay host.");
  relay_ = addresses.front();
  int error = 0;
  socket_ = platform::Socket::Create(platform::SocketKind::UdpIpv4, relay_.Family(), error);
  if (socket_ == nullptr) throw std::runtime_error("UDP socket failed.");
  socket_->SetTimeouts(timeout, timeout);
  socket_->SetBufferBytes(kBufferBytes, kBufferBytes);
}

void RelayDatagramSocket::SetReceiveTimeout(std::chrono::milliseconds timeout) noexcept {
  socket_->SetTimeouts(timeout, sendTimeout_);
}

platform::SocketResult RelayDatagramSocket::Send(std::span<const std::byte> datagram) noexcept {
  return socket_->SendTo(datagram, relay_);
}

platform::SocketResult RelayDatagramSocket::Receive(std::span<std::byte> buffer) noexcept {
  platform::SocketAddress from;
  return socket_->ReceiveFrom(buffer, from);
}

}  // namespace tunnel
