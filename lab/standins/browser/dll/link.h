#pragma once

#include "platform/windows_sdk.h"

#include <cstddef>
#include <cstdint>
#include <mutex>
#include <string>
#include <string_view>

namespace browser {

// The link to the bridge: frames of u32 body length, u8 kind, body; numbers little endian, text
// UTF-8. wire.mjs has the same table and describes each body.
enum class FromHost : uint8_t {
  Create = 1,
  LoadText = 2,
  LoadUrl = 3,
  PostJson = 4,
  PostText = 5,
  Bounds = 6,
  Visible = 7,
  Focus = 8,
  Mouse = 9,
  Key = 10,
  InsertText = 11,
  Copy = 12,
  FrameDone = 13,
  Background = 14,
};

enum class ToHost : uint8_t {
  Ready = 101,
  Failed = 102,
  Message = 103,
  Navigated = 104,
  Frame = 105,
  Selection = 106,
  ProcessFailed = 107,
};

inline constexpr size_t kFrameHeadBytes = 5;
// Far above any real frame; a longer one means that the stream is out of step.
inline constexpr uint32_t kMaxFrameBytes = 64u * 1024 * 1024;

// Builds a body piece by piece.
class BodyWriter {
 public:
  BodyWriter& U8(uint8_t value);
  BodyWriter& U32(uint32_t value);
  BodyWriter& I32(int32_t value) { return U32(static_cast<uint32_t>(value)); }
  BodyWriter& U64(uint64_t value);
  BodyWriter& Text(std::wstring_view text);
  [[nodiscard]] const std::string& Bytes() const { return bytes_; }

 private:
  std::string bytes_;
};

// Reads a body piece by piece. Past the end it returns zeros and empty texts, and Ok() is false.
class BodyReader {
 public:
  explicit BodyReader(std::string_view bytes) : bytes_(bytes) {}
  uint8_t U8();
  uint32_t U32();
  uint64_t U64();
  std::string_view Bytes(size_t size);
  std::string_view Rest() { return Bytes(bytes_.size()); }
  [[nodiscard]] bool Ok() const { return ok_; }

 private:
  std::string_view bytes_;
  bool ok_ = true;
};

struct Frame {
  ToHost kind;
  std::string body;
};

// The TCP connection to the bridge.
//
// Threads: Connect() and Receive() on one reading thread; Send() and Close() on any.
// Errors:  functions return false; the link is then dead for good.
class Link {
 public:
  Link();
  ~Link();
  Link(const Link&) = delete;
  Link& operator=(const Link&) = delete;

  [[nodiscard]] bool Connect(uint16_t port);
  bool Send(FromHost kind, const BodyWriter& body);
  // Blocks until the next frame.
  [[nodiscard]] bool Receive(Frame& frame);
  // Ends the connection and wakes the reading thread. Only this closes the socket.
  void Close();

 private:
  bool ReceiveBytes(char* bytes, size_t size);
  SOCKET Current();

  std::mutex sendLock_;    // one frame at a time
  std::mutex socketLock_;  // guards socket_ and closed_
  SOCKET socket_ = INVALID_SOCKET;
  bool closed_ = false;
};

}  // namespace browser
