#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace tunnel {

// The client's side of WebSocket frames (RFC 6455, section 5.2). Pure; all numbers on the wire are
// big-endian.

inline constexpr std::uint8_t kOpcodeContinuation = 0;
inline constexpr std::uint8_t kOpcodeText = 1;
inline constexpr std::uint8_t kOpcodeBinary = 2;
inline constexpr std::uint8_t kOpcodeClose = 8;
inline constexpr std::uint8_t kOpcodePing = 9;
inline constexpr std::uint8_t kOpcodePong = 10;

// The limit for one frame, and for one message assembled from fragments.
inline constexpr std::size_t kMaxMessageBytes = 4194304;

// The masking key of the frame sent after `framesSent` others, at `tickMs` (GetTickCount).
std::uint32_t MakeMaskKey(std::uint32_t framesSent, std::uint32_t tickMs) noexcept;

// The size of a written frame with that payload.
std::size_t FrameBytes(std::size_t payloadBytes) noexcept;

// Writes one frame to the start of `out`, which must have room for FrameBytes(), and returns that
// part: FIN set, masked, length in its shortest form. `opcode` is 0 to 15.
std::span<std::byte> WriteFrame(std::span<std::byte> out, std::uint8_t opcode,
                                std::span<const std::byte> payload, std::uint32_t maskKey) noexcept;

enum class FrameEvent {
  NeedMore,  // the remaining bytes are the start of a frame
  Message,   // Payload() is a complete binary message
  Ping,      // Payload() belongs to a ping and must be sent back
  Ended,     // a close frame, or a declared length over the limit
};

// Splits one relay connection's byte stream into messages, in the caller's buffer: a message of one
// frame, as every packet is, is never copied.
//
// Binary and continuation frames form the messages; text and unknown frames are skipped one by one.
// A continuation therefore always extends the message being assembled, even if it continues nothing
// or a text, and so does a binary frame within an unfinished message. Masked frames are unmasked;
// reserved bits are ignored.
//
// Threads: none inside; one caller at a time (the receiving thread).
// Owns:    the received part of a fragmented message, up to kMaxMessageBytes.
// Errors:  Ended is final. A frame or fragment over the limit is detected from its header, before
//          the rest arrives and before any allocation.
class FrameReader {
 public:
  FrameReader() = default;
  FrameReader(const FrameReader&) = delete;
  FrameReader& operator=(const FrameReader&) = delete;

  struct Result {
    FrameEvent event = FrameEvent::NeedMore;
    std::size_t takenBytes = 0;
  };
  // Consumes whole frames from the start of `bytes` up to the first event. Pass the rest to the
  // next call, extended after NeedMore. Unmasks in place.
  [[nodiscard]] Result Feed(std::span<std::byte> bytes);

  // The payload of the last Feed(): part of its `bytes` or, if assembled from fragments, of the
  // reader's memory, with kReadableBehindPacket bytes behind it. Valid, and free to change, until
  // the next Feed().
  [[nodiscard]] std::span<std::byte> Payload() noexcept { return payload_; }

 private:
  struct Header;

  [[nodiscard]] bool IsTooLong(const Header& header) const noexcept;
  FrameEvent TakeFrame(const Header& header, std::span<std::byte> payload);
  FrameEvent TakeData(bool isFinal, std::span<std::byte> payload);

  bool hasEnded_ = false;
  bool isGathering_ = false;  // a fragmented message is incomplete
  std::vector<std::byte> fragments_;
  std::span<std::byte> payload_;
};

// The WebSocket opening handshake (RFC 6455, section 4), the client's side. Pure.

// The limit for the response's header block, including its empty line.
inline constexpr std::size_t kMaxHandshakeBytes = 16384;

// The complete request. The key is RFC 6455's sample nonce; the relay's accept value is not
// checked. `host` has no port.
std::string BuildHandshakeRequest(std::wstring_view pathAndQuery, std::wstring_view host);

enum class HandshakeState {
  NeedMore,
  Done,      // Status() is known
  TooLarge,  // no empty line within the first kMaxHandshakeBytes; final
};

// Reads the relay's response in pieces of any size.
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

  // The status line's code; 0 if it has none. Only after Done.
  [[nodiscard]] int Status() const noexcept;

 private:
  HandshakeState state_ = HandshakeState::NeedMore;
  std::string header_;
};

// Writes `from`, masked or unmasked with the key (RFC 6455, section 5.3), to the start of `to`,
// which must have room for it. Both may start at the same byte, but must not overlap otherwise. The
// key's most significant byte comes first on the wire. Pure, any thread.
void CopyMasked(std::span<std::byte> to, std::span<const std::byte> from,
                std::uint32_t key) noexcept;

}  // namespace tunnel
