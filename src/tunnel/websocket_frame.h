#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

// WebSocket frames (RFC 6455, section 5.2), as a client writes and reads them. Pure; all numbers on
// the wire are big-endian.
namespace tunnel {

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

// Masks or unmasks `bytes`, of which the first is the payload's byte number `offset`. The key's
// most significant byte is the first on the wire.
void ApplyMask(std::span<std::byte> bytes, std::uint32_t key, std::size_t offset) noexcept;

// One whole frame: FIN set, masked, the shortest form of the length. `opcode` is 0 to 15.
std::vector<std::byte> EncodeFrame(std::uint8_t opcode, std::span<const std::byte> payload,
                                   std::uint32_t maskKey);

enum class FrameEvent {
  NeedMore,  // all bytes taken, nothing finished yet
  Message,   // a binary message is whole: Payload()
  Ping,      // a ping is whole, to be answered with its Payload()
  Ended,     // a close frame, or a declared length over the limit
};

// Cuts one relay connection's byte stream into messages.
//
// Binary and continuation frames make up the messages; text frames and frames of unknown kinds are
// skipped, one frame at a time. So a continuation always belongs to the message being gathered,
// also when it continues nothing or a text, and a binary frame within an unfinished message goes on
// with it. Masked frames are unmasked; reserved bits are not looked at.
//
// Threads: none inside; one caller at a time (the receiving thread).
// Owns:    what has arrived of the current message and frame, each up to kMaxMessageBytes.
// Errors:  Ended is final. A length over the limit is noticed from the frame's header, before
//          anything is stored; so is a fragment that would make the message longer than the limit.
class FrameReader {
 public:
  FrameReader() = default;
  FrameReader(const FrameReader&) = delete;
  FrameReader& operator=(const FrameReader&) = delete;

  struct Result {
    FrameEvent event = FrameEvent::NeedMore;
    std::size_t takenBytes = 0;  // feed the rest again
  };
  // Takes bytes, cut anywhere, until they are used up or something is finished.
  [[nodiscard]] Result Feed(std::span<const std::byte> bytes);

  // What the last Feed() finished; valid until the next one, and the caller's to change.
  [[nodiscard]] std::span<std::byte> Payload() noexcept {
    return finished_ == nullptr ? std::span<std::byte>() : std::span(*finished_);
  }

 private:
  enum class Part { Header, Body, Ended };

  bool TakeHeaderByte(std::byte byte);
  [[nodiscard]] std::size_t HeaderBytes() const noexcept;
  void ReadHeader();
  void ReleaseFinished();
  std::vector<std::byte>* Target() noexcept;
  void TakeBody(std::span<const std::byte> bytes);
  FrameEvent FinishFrame();
  [[nodiscard]] bool IsData() const noexcept;

  Part part_ = Part::Header;
  std::byte header_[14] = {};
  std::size_t headerBytes_ = 0;  // of header_ that have arrived
  std::uint8_t opcode_ = 0;
  bool isFinal_ = false;
  bool isMasked_ = false;
  std::uint32_t maskKey_ = 0;
  std::size_t bodyBytes_ = 0;   // the frame's payload
  std::size_t takenBytes_ = 0;  // of them that have arrived
  std::vector<std::byte> message_;
  std::vector<std::byte> control_;
  std::vector<std::byte>* finished_ = nullptr;  // message_ or control_, for Payload()
};

}  // namespace tunnel
