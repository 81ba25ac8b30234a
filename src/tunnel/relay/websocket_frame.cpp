#include "tunnel/relay/websocket_frame.h"

#include <cassert>

#include "tunnel/packets/bytes.h"
#include "tunnel/packets/packet.h"
#include "tunnel/relay/frame_mask.h"

namespace tunnel {
namespace {

constexpr std::uint8_t kFinal = 0x80;
constexpr std::uint8_t kMasked = 0x80;
constexpr std::uint8_t kLength16 = 126;
constexpr std::uint8_t kLength64 = 127;
constexpr std::size_t kKeyBytes = 4;

std::uint8_t LengthField(std::size_t sizeBytes) noexcept {
  if (sizeBytes < kLength16) return static_cast<std::uint8_t>(sizeBytes);
  return sizeBytes <= 0xFFFF ? kLength16 : kLength64;
}

std::size_t ExtendedBytes(std::uint8_t lengthField) noexcept {
  if (lengthField == kLength16) return 2;
  return lengthField == kLength64 ? 8 : 0;
}

}  // namespace

std::uint32_t MakeMaskKey(std::uint32_t framesSent, std::uint32_t tickMs) noexcept {
  return (framesSent + 1) * 0x9E3779B9U ^ tickMs;
}

std::size_t FrameBytes(std::size_t payloadBytes) noexcept {
  return 2 + ExtendedBytes(LengthField(payloadBytes)) + kKeyBytes + payloadBytes;
}

std::span<std::byte> WriteFrame(std::span<std::byte> out, std::uint8_t opcode,
                                std::span<const std::byte> payload,
                                std::uint32_t maskKey) noexcept {
  assert(out.size() >= FrameBytes(payload.size()));
  const std::uint8_t lengthField = LengthField(payload.size());
  WriteU8(out, 0, static_cast<std::uint8_t>(kFinal | opcode));
  WriteU8(out, 1, static_cast<std::uint8_t>(kMasked | lengthField));
  if (lengthField == kLength16) WriteU16Be(out, 2, static_cast<std::uint16_t>(payload.size()));
  if (lengthField == kLength64) WriteU64Be(out, 2, payload.size());
  const std::size_t keyAt = 2 + ExtendedBytes(lengthField);
  WriteU32Be(out, keyAt, maskKey);
  CopyMasked(out.subspan(keyAt + kKeyBytes), payload, maskKey);
  return out.first(keyAt + kKeyBytes + payload.size());
}

struct FrameReader::Header {
  std::uint8_t opcode = 0;
  bool isFinal = false;
  bool isMasked = false;
  std::uint32_t key = 0;
  std::size_t sizeBytes = 0;  // 0: not whole yet
  std::uint64_t payloadBytes = 0;

  explicit Header(std::span<const std::byte> bytes) noexcept;
  [[nodiscard]] bool IsData() const noexcept {
    return opcode == kOpcodeContinuation || opcode == kOpcodeBinary;
  }
};

FrameReader::Header::Header(std::span<const std::byte> bytes) noexcept {
  if (bytes.size() < 2) return;
  const std::uint8_t first = ReadU8(bytes, 0);
  const std::uint8_t second = ReadU8(bytes, 1);
  const auto lengthField = static_cast<std::uint8_t>(second & 0x7F);
  const std::size_t keyAt = 2 + ExtendedBytes(lengthField);
  isMasked = (second & kMasked) != 0;
  const std::size_t headerBytes = keyAt + (isMasked ? kKeyBytes : 0);
  if (bytes.size() < headerBytes) return;
  opcode = first & 0x0F;
  isFinal = (first & kFinal) != 0;
  payloadBytes = lengthField;
  if (lengthField == kLength16) payloadBytes = ReadU16Be(bytes, 2);
  if (lengthField == kLength64) payloadBytes = ReadU64Be(bytes, 2);
  if (isMasked) key = ReadU32Be(bytes, keyAt);
  sizeBytes = headerBytes;
}

FrameReader::Result FrameReader::Feed(std::span<std::byte> bytes) {
  payload_ = {};
  std::size_t taken = 0;
  while (!hasEnded_) {
    const std::span<std::byte> rest = bytes.subspan(taken);
    const Header header(rest);
    if (header.sizeBytes == 0) return {FrameEvent::NeedMore, taken};
    if (IsTooLong(header)) break;
    if (header.payloadBytes > rest.size() - header.sizeBytes) return {FrameEvent::NeedMore, taken};
    const auto payloadBytes = static_cast<std::size_t>(header.payloadBytes);
    taken += header.sizeBytes + payloadBytes;
    const FrameEvent event = TakeFrame(header, rest.subspan(header.sizeBytes, payloadBytes));
    if (event != FrameEvent::NeedMore) return {event, taken};
  }
  hasEnded_ = true;
  return {FrameEvent::Ended, taken};
}

// What is skipped or a ping is not added to the message so far.
bool FrameReader::IsTooLong(const Header& header) const noexcept {
  const std::size_t held = header.IsData() && isGathering_ ? fragments_.size() : 0;
  return header.payloadBytes > kMaxMessageBytes - held;
}

FrameEvent FrameReader::TakeFrame(const Header& header, std::span<std::byte> payload) {
  if (header.opcode == kOpcodeClose) {
    hasEnded_ = true;
    return FrameEvent::Ended;
  }
  if (!header.IsData() && header.opcode != kOpcodePing) return FrameEvent::NeedMore;
  if (header.isMasked) CopyMasked(payload, payload, header.key);
  if (header.IsData()) return TakeData(header.isFinal, payload);
  payload_ = payload;
  return FrameEvent::Ping;
}

FrameEvent FrameReader::TakeData(bool isFinal, std::span<std::byte> payload) {
  if (!isGathering_ && isFinal) {
    payload_ = payload;
    return FrameEvent::Message;
  }
  if (!isGathering_) fragments_.clear();
  fragments_.insert(fragments_.end(), payload.begin(), payload.end());
  isGathering_ = !isFinal;
  if (!isFinal) return FrameEvent::NeedMore;
  const std::size_t messageBytes = fragments_.size();
  fragments_.resize(messageBytes + kReadableBehindPacket);
  payload_ = std::span(fragments_).first(messageBytes);
  return FrameEvent::Message;
}

}  // namespace tunnel
