#pragma once

#include <cstdint>
#include <span>
#include <string_view>
#include <vector>

#include "tunnel/relay/websocket_protocol.h"

namespace tunnel {

using Bytes = std::vector<std::byte>;

inline Bytes BytesOf(std::string_view text) {
  const auto bytes = std::as_bytes(std::span(text));
  return Bytes(bytes.begin(), bytes.end());
}

inline Bytes BytesOf(std::initializer_list<int> values) {
  Bytes bytes;
  for (const int value : values) bytes.push_back(static_cast<std::byte>(value));
  return bytes;
}

inline void Append(Bytes& to, std::span<const std::byte> more) {
  to.insert(to.end(), more.begin(), more.end());
}

// Reads every byte; the compiler cannot optimise it away.
inline void TouchEach(std::span<const std::byte> bytes) {
  for (const std::byte& byte : bytes)
    static_cast<void>(*static_cast<const volatile std::byte*>(&byte));
}

// `size` bytes whose period is not a power of two, so that a shifted copy differs.
inline Bytes Pattern(std::size_t size) {
  Bytes bytes(size);
  for (std::size_t i = 0; i < size; ++i) bytes[i] = static_cast<std::byte>(i % 251);
  return bytes;
}

// A frame written by the program.
inline Bytes ClientFrame(std::uint8_t opcode, std::span<const std::byte> payload,
                         std::uint32_t key) {
  Bytes frame(FrameBytes(payload.size()));
  frame.resize(WriteFrame(frame, opcode, payload, key).size());
  return frame;
}

// A server's frame: unmasked, in the shortest form, built without the program's writer. `firstByte`
// is FIN and opcode, such as 0x82.
inline Bytes ServerFrame(int firstByte, std::span<const std::byte> payload) {
  Bytes frame = BytesOf({firstByte});
  const std::size_t size = payload.size();
  if (size < 126) {
    Append(frame, BytesOf({static_cast<int>(size)}));
  } else if (size < 65536) {
    Append(frame, BytesOf({126, static_cast<int>(size / 256), static_cast<int>(size % 256)}));
  } else {
    Append(frame, BytesOf({127, 0, 0, 0, 0, static_cast<int>(size >> 24),
                           static_cast<int>(size >> 16 & 255), static_cast<int>(size >> 8 & 255),
                           static_cast<int>(size & 255)}));
  }
  Append(frame, payload);
  return frame;
}

}  // namespace tunnel
