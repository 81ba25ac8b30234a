#include "tunnel/relay/websocket_protocol.h"

#include <immintrin.h>
#include <cassert>
#include <charconv>
#include <cstring>

#include "text/utf8.h"
#include "tunnel/packets/bytes.h"
#include "tunnel/packets/packet.h"

namespace tunnel {
namespace {

// RFC 6455, section 5.2.
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

constexpr std::string_view kEndOfHeader = "\r\n\r\n";

// Each function below masks all whole blocks of its size from `at` on and returns the offset of the
// rest. Block sizes are multiples of the key's four bytes, so every block starts with the key's
// first byte. Intrinsics, because GCC's code for plain loops takes twice as long as clang's.

bool HasAvx2() noexcept {
  __builtin_cpu_init();  // required before main()
  return __builtin_cpu_supports("avx2") != 0;
}
const bool kHasAvx2 = HasAvx2();

// Keep 32-byte values in registers: mingw-w64 does not align the stack for them.
__attribute__((target("avx2"))) std::size_t Mask32(std::byte* to, const std::byte* from,
                                                   std::size_t at, std::size_t sizeBytes,
                                                   std::uint32_t keyInMemory) noexcept {
  const __m256i key = _mm256_set1_epi32(static_cast<int>(keyInMemory));
#pragma GCC unroll 4
  for (; sizeBytes - at >= 32; at += 32) {
    const __m256i block = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(from + at));
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(to + at), _mm256_xor_si256(block, key));
  }
  return at;
}

std::size_t Mask16(std::byte* to, const std::byte* from, std::size_t at, std::size_t sizeBytes,
                   std::uint32_t keyInMemory) noexcept {
  const __m128i key = _mm_set1_epi32(static_cast<int>(keyInMemory));
  for (; sizeBytes - at >= 16; at += 16) {
    const __m128i block = _mm_loadu_si128(reinterpret_cast<const __m128i*>(from + at));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(to + at), _mm_xor_si128(block, key));
  }
  return at;
}

std::size_t Mask4(std::byte* to, const std::byte* from, std::size_t at, std::size_t sizeBytes,
                  std::uint32_t keyInMemory) noexcept {
  for (; sizeBytes - at >= 4; at += 4) {
    std::uint32_t block = 0;
    std::memcpy(&block, from + at, sizeof(block));
    block ^= keyInMemory;
    std::memcpy(to + at, &block, sizeof(block));
  }
  return at;
}

}  // namespace

std::uint32_t MakeMaskKey(std::uint32_t framesSent, std::uint32_t tickMs) noexcept {
  // An odd multiplier: consecutive frames differ in many bits of their key.
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
  std::size_t sizeBytes = 0;  // 0: incomplete
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
  // The reserved top bit needs no check: with it, the length is over every limit.
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
    // Before the payload arrives: a declared length must not make the receive buffer grow.
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

// Skipped frames and pings do not count towards the message being assembled.
bool FrameReader::IsTooLong(const Header& header) const noexcept {
  // `held` never exceeds the limit, so the subtraction cannot wrap.
  const std::size_t held = header.IsData() && isGathering_ ? fragments_.size() : 0;
  return header.payloadBytes > kMaxMessageBytes - held;
}

FrameEvent FrameReader::TakeFrame(const Header& header, std::span<std::byte> payload) {
  if (header.opcode == kOpcodeClose) {
    hasEnded_ = true;
    return FrameEvent::Ended;
  }
  // The relay's text frames, pongs and unknown types are skipped.
  if (!header.IsData() && header.opcode != kOpcodePing) return FrameEvent::NeedMore;
  // RFC 6455, section 5.1, forbids a server to mask; ours may.
  if (header.isMasked) CopyMasked(payload, payload, header.key);
  if (header.IsData()) return TakeData(header.isFinal, payload);
  payload_ = payload;
  return FrameEvent::Ping;
}

FrameEvent FrameReader::TakeData(bool isFinal, std::span<std::byte> payload) {
  // The usual case: one frame is one packet and stays in the receive buffer.
  if (!isGathering_ && isFinal) {
    payload_ = payload;
    return FrameEvent::Message;
  }
  if (!isGathering_) fragments_.clear();
  fragments_.insert(fragments_.end(), payload.begin(), payload.end());
  isGathering_ = !isFinal;
  if (!isFinal) return FrameEvent::NeedMore;
  // The packet path's checksum function may read behind the message.
  const std::size_t messageBytes = fragments_.size();
  fragments_.resize(messageBytes + kReadableBehindPacket);
  payload_ = std::span(fragments_).first(messageBytes);
  return FrameEvent::Message;
}

std::string BuildHandshakeRequest(std::wstring_view pathAndQuery, std::wstring_view host) {
  // The key is the example of RFC 6455, section 1.3. It may be constant because the accept value is
  // not checked.
  return "GET " + text::ToUtf8(pathAndQuery) + " HTTP/1.1\r\nHost: " + text::ToUtf8(host) +
         "\r\nUpgrade: websocket\r\nConnection: Upgrade\r\n"
         "Sec-WebSocket-Key: dGhlIHNhbXBsZSBub25jZQ==\r\nSec-WebSocket-Version: 13\r\n\r\n";
}

HandshakeReader::Result HandshakeReader::Feed(std::span<const std::byte> bytes) {
  std::size_t taken = 0;
  while (state_ == HandshakeState::NeedMore && taken < bytes.size()) {
    if (header_.size() == kMaxHandshakeBytes) {
      state_ = HandshakeState::TooLarge;
      break;
    }
    // Byte by byte, so that frames behind the header remain for the FrameReader.
    header_.push_back(std::to_integer<char>(bytes[taken++]));
    if (header_.ends_with(kEndOfHeader)) state_ = HandshakeState::Done;
  }
  return {state_, taken};
}

int HandshakeReader::Status() const noexcept {
  const std::string_view line = std::string_view(header_).substr(0, header_.find("\r\n"));
  const std::size_t code = line.find_first_not_of(' ', line.find(' '));
  if (line.find(' ') == std::string_view::npos || code == std::string_view::npos) return 0;
  int status = 0;
  std::from_chars(line.data() + code, line.data() + line.size(), status);
  return status;
}

void CopyMasked(std::span<std::byte> to, std::span<const std::byte> from,
                std::uint32_t key) noexcept {
  assert(to.size() >= from.size());
  // The key's first byte must be the lowest in memory; x86 stores the lowest byte first.
  const std::uint32_t keyInMemory = __builtin_bswap32(key);
  std::size_t at = 0;
  if (kHasAvx2) at = Mask32(to.data(), from.data(), at, from.size(), keyInMemory);
  at = Mask16(to.data(), from.data(), at, from.size(), keyInMemory);
  at = Mask4(to.data(), from.data(), at, from.size(), keyInMemory);
  for (unsigned shift = 0; at < from.size(); ++at, shift += 8) {
    to[at] = from[at] ^ static_cast<std::byte>(keyInMemory >> shift);
  }
}

}  // namespace tunnel
