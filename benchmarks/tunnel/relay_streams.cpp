#include "benchmarks/tunnel/relay_streams.h"

#include <cstring>
#include <stdexcept>

#include "benchmarks/tunnel/ends.h"
#include "tunnel/packets/bytes.h"
#include "tunnel/relay/udp_datagram.h"

namespace bench {
namespace {

constexpr std::uint8_t kFinalBinary = 0x82;
constexpr std::uint8_t kFinalPing = 0x89;
constexpr std::uint8_t kOpcodeBits = 0x0F;
constexpr std::uint8_t kBinary = 2;
constexpr std::uint8_t kClose = 8;
constexpr std::uint8_t kMaskBit = 0x80;
constexpr std::uint8_t kLengthBits = 0x7F;
constexpr std::size_t kShortPayload = 125;
constexpr std::uint8_t kLength16 = 126;
constexpr std::uint8_t kLength64 = 127;
constexpr std::size_t kMaskBytes = 4;
constexpr std::size_t kShortHeader = 2;
constexpr std::size_t kHeader = 4;

void Unmask(std::span<std::byte> payload, std::span<const std::byte> mask) {
  std::uint32_t half = 0;
  std::memcpy(&half, mask.data(), sizeof(half));
  const std::uint64_t key = std::uint64_t{half} << 32 | half;
  std::size_t i = 0;
  for (; payload.size() - i >= sizeof(key); i += sizeof(key)) {
    std::uint64_t bytes = 0;
    std::memcpy(&bytes, &payload[i], sizeof(bytes));
    bytes ^= key;
    std::memcpy(&payload[i], &bytes, sizeof(bytes));
  }
  for (; i < payload.size(); ++i) payload[i] ^= mask[i % kMaskBytes];
}

}  // namespace

void ClientFrames::DropRead() {
  filled_ -= read_;
  std::memmove(buffer_.data(), buffer_.data() + read_, filled_);
  read_ = 0;
}

std::span<std::byte> ClientFrames::Next() {
  for (;;) {
    const std::span<std::byte> bytes = std::span(buffer_).first(filled_).subspan(read_);
    std::size_t header = kShortHeader + kMaskBytes;
    if (bytes.size() < header) break;
    const std::uint8_t opcode = tunnel::ReadU8(bytes, 0) & kOpcodeBits;
    const std::uint8_t length = tunnel::ReadU8(bytes, 1) & kLengthBits;
    if ((tunnel::ReadU8(bytes, 1) & kMaskBit) == 0 || length == kLength64 || opcode == kClose) {
      throw std::runtime_error("The client has ended the connection or sent no packet");
    }
    if (length == kLength16) header += 2;
    if (bytes.size() < header) break;
    const std::size_t payload = length == kLength16 ? tunnel::ReadU16Be(bytes, 2) : length;
    if (bytes.size() - header < payload) break;
    read_ += header + payload;
    if (opcode != kBinary || payload == 0) continue;
    Unmask(bytes.subspan(header, payload), bytes.subspan(header - kMaskBytes, kMaskBytes));
    return bytes.subspan(header, payload);
  }
  DropRead();
  return {};
}

Downlink::Downlink(int webSocket, int udp, std::uint64_t token)
    : webSocket_(webSocket),
      udp_(udp),
      token_(token),
      frames_(kFrameBytes + kHeader + kMaxPacketBytes),
      slots_(kDatagrams * kSlotBytes) {
  for (std::size_t i = 0; i < kDatagrams; ++i) {
    parts_[i].iov_base = &slots_[i * kSlotBytes];
    messages_[i].msg_hdr.msg_iov = &parts_[i];
    messages_[i].msg_hdr.msg_iovlen = 1;
  }
}

std::span<std::byte> Downlink::Room() {
  return std::span(frames_).subspan(frameBytes_ + kHeader, kMaxPacketBytes);
}

void Downlink::Take(std::size_t bytes, bool mayGoByUdp) {
  if (mayGoByUdp && bytes <= tunnel::kMaxUdpPacketBytes) {
    AddDatagram(bytes);
  } else {
    AddFrame(bytes);
  }
}

void Downlink::AddFrame(std::size_t bytes) {
  const std::span<std::byte> frame = std::span(frames_).subspan(frameBytes_);
  tunnel::WriteU8(frame, 0, kFinalBinary);
  if (bytes <= kShortPayload) {
    tunnel::WriteU8(frame, 1, static_cast<std::uint8_t>(bytes));
    std::memmove(&frame[kShortHeader], &frame[kHeader], bytes);
    frameBytes_ += kShortHeader + bytes;
  } else {
    tunnel::WriteU8(frame, 1, kLength16);
    tunnel::WriteU16Be(frame, 2, static_cast<std::uint16_t>(bytes));
    frameBytes_ += kHeader + bytes;
  }
}

void Downlink::AddDatagram(std::size_t bytes) {
  const std::span<std::byte> slot = std::span(slots_).subspan(datagrams_ * kSlotBytes, kSlotBytes);
  parts_[datagrams_].iov_len = tunnel::WriteUdpPacket(slot, token_, Room().first(bytes)).size();
  ++datagrams_;
}

bool Downlink::IsFull() const {
  return frameBytes_ >= kFrameBytes || datagrams_ == kDatagrams;
}

bool Downlink::Flush() {
  // A datagram that the socket refuses is lost, as on any network.
  if (datagrams_ > 0) {
    (void)::sendmmsg(udp_, messages_.data(), static_cast<unsigned>(datagrams_), 0);
    datagrams_ = 0;
  }
  const std::size_t bytes = frameBytes_;
  frameBytes_ = 0;
  return bytes == 0 || SendAll(webSocket_, std::span(frames_).first(bytes));
}

bool Downlink::SendPing() {
  const std::array<std::byte, kShortHeader> ping = {std::byte{kFinalPing}, std::byte{0}};
  return SendAll(webSocket_, ping);
}

}  // namespace bench
