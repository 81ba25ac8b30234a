#include "tunnel/websocket_frame.h"

#include <algorithm>

namespace tunnel {
namespace {

constexpr std::uint8_t kFinal = 0x80;
constexpr std::uint8_t kMasked = 0x80;
constexpr std::uint8_t kLength16 = 126;
constexpr std::uint8_t kLength64 = 127;

void AppendBe(std::vector<std::byte>& out, std::uint64_t value, std::size_t sizeBytes) {
  for (std::size_t left = sizeBytes; left > 0; --left) {
    out.push_back(static_cast<std::byte>(value >> (8 * (left - 1))));
  }
}

std::uint64_t ReadBe(std::span<const std::byte> bytes) noexcept {
  std::uint64_t value = 0;
  for (const std::byte byte : bytes) value = value << 8 | std::to_integer<std::uint64_t>(byte);
  return value;
}

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

void ApplyMask(std::span<std::byte> bytes, std::uint32_t key, std::size_t offset) noexcept {
  // The key repeated over one vector register: the compiler makes one operation of the inner loop.
  constexpr std::size_t kBlock = 16;
  std::byte keyBytes[kBlock];
  for (std::size_t i = 0; i < kBlock; ++i) {
    keyBytes[i] = static_cast<std::byte>(key >> (24 - 8 * ((i + offset) % 4)));
  }
  std::size_t at = 0;
  for (; bytes.size() - at >= kBlock; at += kBlock) {
    for (std::size_t i = 0; i < kBlock; ++i) bytes[at + i] ^= keyBytes[i];
  }
  for (std::size_t i = 0; at < bytes.size(); ++at, ++i) bytes[at] ^= keyBytes[i];
}

std::vector<std::byte> EncodeFrame(std::uint8_t opcode, std::span<const std::byte> payload,
                                   std::uint32_t maskKey) {
  const std::uint8_t lengthField = LengthField(payload.size());
  std::vector<std::byte> frame;
  frame.reserve(14 + payload.size());
  frame.push_back(static_cast<std::byte>(kFinal | opcode));
  frame.push_back(static_cast<std::byte>(kMasked | lengthField));
  AppendBe(frame, payload.size(), ExtendedBytes(lengthField));
  AppendBe(frame, maskKey, 4);
  const std::size_t headerBytes = frame.size();
  frame.insert(frame.end(), payload.begin(), payload.end());
  ApplyMask(std::span(frame).subspan(headerBytes), maskKey, 0);
  return frame;
}

FrameReader::Result FrameReader::Feed(std::span<const std::byte> bytes) {
  ReleaseFinished();
  std::size_t taken = 0;
  for (;;) {
    while (part_ == Part::Header && taken < bytes.size()) {
      if (TakeHeaderByte(bytes[taken++])) ReadHeader();
    }
    if (part_ == Part::Ended) return {FrameEvent::Ended, taken};
    if (part_ == Part::Header) return {FrameEvent::NeedMore, taken};
    const std::size_t count = std::min(bodyBytes_ - takenBytes_, bytes.size() - taken);
    TakeBody(bytes.subspan(taken, count));
    taken += count;
    if (takenBytes_ < bodyBytes_) return {FrameEvent::NeedMore, taken};
    const FrameEvent event = FinishFrame();
    if (event != FrameEvent::NeedMore) return {event, taken};
  }
}

// How long the header is, as far as what has arrived of it tells.
std::size_t FrameReader::HeaderBytes() const noexcept {
  if (headerBytes_ < 2) return 2;
  const auto second = std::to_integer<std::uint8_t>(header_[1]);
  const std::size_t keyBytes = (second & kMasked) != 0 ? 4 : 0;
  return 2 + ExtendedBytes(second & 0x7F) + keyBytes;
}

// True when the header is whole.
bool FrameReader::TakeHeaderByte(std::byte byte) {
  header_[headerBytes_++] = byte;
  return headerBytes_ == HeaderBytes();
}

void FrameReader::ReadHeader() {
  const auto first = std::to_integer<std::uint8_t>(header_[0]);
  const auto second = std::to_integer<std::uint8_t>(header_[1]);
  const std::span<const std::byte> header(header_);
  const std::size_t extended = ExtendedBytes(second & 0x7F);
  const std::uint64_t length = extended == 0 ? second & 0x7FU : ReadBe(header.subspan(2, extended));
  opcode_ = first & 0x0F;
  isFinal_ = (first & kFinal) != 0;
  isMasked_ = (second & kMasked) != 0;
  maskKey_ = isMasked_ ? static_cast<std::uint32_t>(ReadBe(header.subspan(2 + extended, 4))) : 0;
  headerBytes_ = 0;
  takenBytes_ = 0;
  // What is skipped or a ping is not added to the message so far.
  const std::size_t held = IsData() ? message_.size() : 0;
  part_ = length > kMaxMessageBytes - held ? Part::Ended : Part::Body;
  bodyBytes_ = part_ == Part::Body ? static_cast<std::size_t>(length) : 0;
}

bool FrameReader::IsData() const noexcept {
  return opcode_ == kOpcodeContinuation || opcode_ == kOpcodeBinary;
}

void FrameReader::ReleaseFinished() {
  if (finished_ != nullptr) finished_->clear();
  finished_ = nullptr;
}

// Where the frame's payload is gathered; null when it is passed over.
std::vector<std::byte>* FrameReader::Target() noexcept {
  if (IsData()) return &message_;
  return opcode_ == kOpcodePing ? &control_ : nullptr;
}

void FrameReader::TakeBody(std::span<const std::byte> bytes) {
  if (std::vector<std::byte>* const target = Target(); target != nullptr) {
    const std::size_t before = target->size();
    target->insert(target->end(), bytes.begin(), bytes.end());
    if (isMasked_) ApplyMask(std::span(*target).subspan(before), maskKey_, takenBytes_);
  }
  takenBytes_ += bytes.size();
}

FrameEvent FrameReader::FinishFrame() {
  part_ = Part::Header;
  if (opcode_ == kOpcodeClose) {
    part_ = Part::Ended;
    return FrameEvent::Ended;
  }
  if (opcode_ == kOpcodePing) {
    finished_ = &control_;
    return FrameEvent::Ping;
  }
  if (!IsData() || !isFinal_) return FrameEvent::NeedMore;
  finished_ = &message_;
  return FrameEvent::Message;
}

}  // namespace tunnel
