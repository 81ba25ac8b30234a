#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace tunnel {

// WebSocket frames (RFC 6455, section 5.2), as a client writes and reads them. Pure; all numbers on
// the wire are big-endian.

inline constexpr std::uint8_t kOpcodeContinuation = 0;
inline constexpr std::uint8_t kOpcodeText = 1;
inline constexpr std::uint8_t kOpcodeBinary = 2;
inline constexpr std::uint8_t kOpcodeClose = 8;
inline constexpr std::uint8_t kOpcodePing = 9;
inline constexpr std::uint8_t kOpcodePong = 10;

// The most that one frame may carry, and one message gathered from fragments.
inline constexpr std::size_t kMaxMessageBytes = 4194304;

// The masking key of the frame sent after `framesSent` others, at `tickMs` (GetTickCount).
std::uint32_t MakeMaskKey(std::uint32_t framesSent, std::uint32_t tickMs) noexcept;

// What a written frame takes with a payload of that many bytes.
std::size_t FrameBytes(std::size_t payloadBytes) noexcept;

// Writes one whole frame to the start of `out`, which must have room for FrameBytes(), and returns
// that part: FIN set, masked, the shortest form of the length. `opcode` is 0 to 15.
std::span<std::byte> WriteFrame(std::span<std::byte> out, std::uint8_t opcode,
                                std::span<const std::byte> payload, std::uint32_t maskKey) noexcept;

enum class FrameEvent {
  NeedMore,  // nothing finished: what was not taken is the start of a frame
  Message,   // a binary message is whole: Payload()
  Ping,      // a ping is whole, to be answered with its Payload()
  Ended,     // a close frame, or a declared length over the limit
};

// Cuts one relay connection's byte stream into messages, in the caller's own buffer: a message of
// one frame, as every packet is, is never copied.
//
// Binary and continuation frames make up the messages; text frames and frames of unknown kinds are
// skipped, one frame at a time. So a continuation always belongs to the message being gathered,
// also when it continues nothing or a text, and a binary frame within an unfinished message goes on
// with it. Masked frames are unmasked; reserved bits are not looked at.
//
// Threads: none inside; one caller at a time (the receiving thread).
// Owns:    what has arrived of a message in fragments, up to kMaxMessageBytes.
// Errors:  Ended is final. A length over the limit is noticed from the frame's header, before the
//          rest arrives; so is a fragment that would make the message longer than the limit.
class FrameReader {
 public:
  FrameReader() = default;
  FrameReader(const FrameReader&) = delete;
  FrameReader& operator=(const FrameReader&) = delete;

  struct Result {
    FrameEvent event = FrameEvent::NeedMore;
    std::size_t takenBytes = 0;
  };
  // Takes whole frames from the start of `bytes` until something is finished. The next call gets
  // what was not taken, with more behind it after NeedMore. Unmasks in place.
  [[nodiscard]] Result Feed(std::span<std::byte> bytes);

  // What the last Feed() finished: a part of its `bytes` or, gathered from fragments, the reader's
  // own, with kReadableBehindPacket bytes behind it. Valid until the next Feed(), and the caller's
  // to change.
  [[nodiscard]] std::span<std::byte> Payload() noexcept { return payload_; }

 private:
  struct Header;

  [[nodiscard]] bool IsTooLong(const Header& header) const noexcept;
  FrameEvent TakeFrame(const Header& header, std::span<std::byte> payload);
  FrameEvent TakeData(bool isFinal, std::span<std::byte> payload);

  bool hasEnded_ = false;
  bool isGathering_ = false;          // a message has begun and is not whole
  std::vector<std::byte> fragments_;  // of it
  std::span<std::byte> payload_;
};

// The WebSocket opening handshake (RFC 6455, section 4), the client's side. Pure.

// The most that the response's header block, its empty line included, may take.
inline constexpr std::size_t kMaxHandshakeBytes = 16384;

// The whole request. The key is RFC 6455's sample nonce; the relay's accept value is not checked.
// `host` goes without the port.
std::string BuildHandshakeRequest(std::wstring_view pathAndQuery, std::wstring_view host);

enum class HandshakeState {
  NeedMore,
  Done,      // the header block is whole: Status()
  TooLarge,  // no empty line within the first kMaxHandshakeBytes; final
};

// Reads the relay's response, however it is cut.
//
// Threads: none inside; one caller at a time.
// Owns:    at most kMaxHandshakeBytes.
class HandshakeReader {
 public:
  struct Result {
    HandshakeState state = HandshakeState::NeedMore;
    std::size_t takenBytes = 0;  // Done: the bytes after these belong to the first frame
  };
  [[nodiscard]] Result Feed(std::span<const std::byte> bytes);

  // The status line's code as a decimal number; 0 when it has none. Only after Done.
  [[nodiscard]] int Status() const noexcept;

 private:
  HandshakeState state_ = HandshakeState::NeedMore;
  std::string header_;
};

// Writes `from`, masked or unmasked with the key (RFC 6455, section 5.3), to the start of `to`,
// which must have room for it. Both may begin at the same byte, but not overlap otherwise. The
// key's most significant byte is the first on the wire. Pure, any thread.
void CopyMasked(std::span<std::byte> to, std::span<const std::byte> from,
                std::uint32_t key) noexcept;

}  // namespace tunnel
