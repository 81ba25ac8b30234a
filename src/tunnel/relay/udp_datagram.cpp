#include "tunnel/relay/udp_datagram.h"

#include <algorithm>
#include <cassert>
#include <stdexcept>
#include <string>
#include <vector>

#include "text/strings.h"
#include "text/utf8.h"
#include "tunnel/packets/bytes.h"
#include "tunnel/relay/relay_url.h"

namespace tunnel {
namespace {

// The layout is described in docs/service-contract.md, section "Relay: UDP".
constexpr std::uint32_t kMagic = 0x544E5231;  // "TNR1"
constexpr std::uint8_t kAcknowledgement = 3;
constexpr std::uint8_t kPacket = 4;
constexpr std::size_t kTypeOffset = 4;
constexpr std::size_t kStartBytes = 5;  // magic and type
constexpr std::size_t kAcknowledgementBytes = 14;
constexpr std::size_t kMaxTextBytes = 0xFFFF;

bool IsOfType(std::span<const std::byte> datagram, std::uint8_t type) {
  return ReadU32Be(datagram, 0) == kMagic && ReadU8(datagram, kTypeOffset) == type;
}

void WriteStart(std::span<std::byte> datagram, std::uint8_t type) {
  WriteU32Be(datagram, 0, kMagic);
  WriteU8(datagram, kTypeOffset, type);
}

void AppendText(std::vector<std::byte>& datagram, std::wstring_view value) {
  const std::string utf8 = text::ToUtf8(text::Trim(value));
  // The length field has 16 bits.
  const auto bytes = std::as_bytes(std::span(utf8)).first(std::min(utf8.size(), kMaxTextBytes));
  const std::size_t at = datagram.size();
  datagram.resize(at + 2);
  WriteU16Be(datagram, at, static_cast<std::uint16_t>(bytes.size()));
  datagram.insert(datagram.end(), bytes.begin(), bytes.end());
}

constexpr int kBufferBytes = 4194304;

}  // namespace

std::vector<std::byte> BuildHello(std::wstring_view connectionId, std::wstring_view engineerId) {
  std::vector<std::byte> hello(kStartBytes);
  WriteStart(hello, kRelayModeHello);
  AppendText(hello, connectionId);
  AppendText(hello, engineerId);
  return hello;
}

std::optional<std::uint64_t> ParseAcknowledgement(std::span<const std::byte> datagram) {
  // First the length: the reads below do not check it.
  if (datagram.size() != kAcknowledgementBytes) return std::nullopt;
  if (!IsOfType(datagram, kAcknowledgement)) return std::nullopt;
  if (ReadU8(datagram, kStartBytes) != kRelayModeHello) return std::nullopt;
  const std::uint64_t token = ReadU64Be(datagram, kStartBytes + 1);
  if (token == 0) return std::nullopt;
  return token;
}

std::optional<std::span<std::byte>> ParseUdpPacket(std::span<std::byte> datagram,
                                                   std::uint64_t token) {
  if (datagram.size() <= kUdpHeaderBytes) return std::nullopt;
  if (datagram.size() > kMaxUdpDatagramBytes) return std::nullopt;
  if (!IsOfType(datagram, kPacket)) return std::nullopt;
  // 0 is "no token yet": before the first acknowledgement no datagram may pass, not even with 0.
  if (token == 0 || ReadU64Be(datagram, kStartBytes) != token) return std::nullopt;
  return datagram.subspan(kUdpHeaderBytes);
}

std::span<const std::byte> WriteUdpPacket(std::span<std::byte> datagram, std::uint64_t token,
                                          std::span<const std::byte> packet) {
  assert(packet.size() <= datagram.size() - kUdpHeaderBytes);
  WriteStart(datagram, kPacket);
  WriteU64Be(datagram, kStartBytes, token);
  std::ranges::copy(packet, datagram.subspan(kUdpHeaderBytes).begin());
  return datagram.first(kUdpHeaderBytes + packet.size());
}

RelayDatagramSocket::RelayDatagramSocket(const std::wstring& serverUrl,
                                         std::chrono::milliseconds timeout,
                                         const std::function<bool()>& isCancelled)
    : sendTimeout_(timeout) {
  const ServiceEndpoint endpoint = ParseServiceEndpoint(serverUrl);
  std::vector<platform::SocketAddress> addresses;
  // A failed start leaves no addresses and so has the same text as a failed look-up.
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
  // The sender is ignored; the token alone keeps strangers out.
  return socket_->ReceiveFrom(buffer, from);
}

DatagramSocketPointer OpenRelaySocket(const std::wstring& serverUrl,
                                      std::chrono::milliseconds timeout,
                                      const std::function<bool()>& isCancelled) {
  return std::make_shared<RelayDatagramSocket>(serverUrl, timeout, isCancelled);
}

}  // namespace tunnel
