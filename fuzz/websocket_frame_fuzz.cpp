// Feeds any bytes to the frame reader in any chunks. The first byte of the input picks the chunk
// size. Events and payloads must be the same as for the whole input at once, and the same as those
// of a simple second reader.

#include <algorithm>
#include <cstdlib>
#include <string>

#include "tunnel/relay/websocket_protocol.h"
#include "tunnel/relay/websocket_relay.h"

namespace {

// All events and payloads of `stream` as one text. Each payload is preceded by its length, so that
// its bytes cannot be mistaken for an event.
std::string ReadAll(std::span<const std::byte> stream, std::size_t chunk) {
  tunnel::FrameReader reader;
  tunnel::ReceiveBuffer buffer;
  std::string events;
  while (!stream.empty()) {
    const std::span<const std::byte> piece = stream.first(std::min(chunk, stream.size()));
    stream = stream.subspan(piece.size());
    std::ranges::copy(piece, buffer.Room(piece.size()).begin());
    buffer.Add(piece.size());
    for (;;) {
      const tunnel::FrameReader::Result result = reader.Feed(buffer.Unread());
      if (result.takenBytes > buffer.Unread().size()) std::abort();
      buffer.Take(result.takenBytes);
      if (result.event == tunnel::FrameEvent::NeedMore) break;
      if (result.event == tunnel::FrameEvent::Ended) return events + "ended";
      const std::span<const std::byte> payload = reader.Payload();
      if (payload.size() > tunnel::kMaxMessageBytes) std::abort();
      events += result.event == tunnel::FrameEvent::Message ? "message " : "ping ";
      events += std::to_string(payload.size()) + ":";
      for (const std::byte byte : payload) events += std::to_integer<char>(byte);
    }
  }
  return events;
}

// Frame by frame over the whole stream (RFC 6455, section 5.2), as one text like the one above.
std::string ReadPlainly(std::span<const std::byte> stream) {
  std::string events;
  std::string message;
  bool inMessage = false;
  while (stream.size() >= 2) {
    const auto byte = [&](std::size_t at) { return std::to_integer<std::uint64_t>(stream[at]); };
    const std::uint64_t opcode = byte(0) & 15;
    std::uint64_t length = byte(1) & 127;
    const std::size_t lengthBytes = length == 126 ? 2 : length == 127 ? 8 : 0;
    const bool isMasked = byte(1) >= 128;
    const std::size_t header = 2 + lengthBytes + (isMasked ? 4 : 0);
    if (stream.size() < header) return events;
    if (lengthBytes > 0) length = 0;
    for (std::size_t i = 0; i < lengthBytes; ++i) length = length << 8 | byte(2 + i);
    const bool isData = opcode == 0 || opcode == 2;
    const std::size_t held = isData && inMessage ? message.size() : 0;
    if (length > tunnel::kMaxMessageBytes - held) return events + "ended";
    if (length > stream.size() - header) return events;
    std::string payload;
    for (std::size_t i = 0; i < length; ++i) {
      const std::uint64_t key = isMasked ? byte(header - 4 + i % 4) : 0;
      payload += static_cast<char>(byte(header + i) ^ key);
    }
    const bool isFinal = byte(0) >= 128;
    stream = stream.subspan(header + payload.size());
    if (opcode == 8) return events + "ended";
    if (opcode == 9) events += "ping " + std::to_string(payload.size()) + ":" + payload;
    if (!isData) continue;
    message = inMessage ? message + payload : payload;
    inMessage = !isFinal;
    if (isFinal) events += "message " + std::to_string(message.size()) + ":" + message;
  }
  return events;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  const auto stream = std::as_bytes(std::span(data, size)).subspan(1);
  const std::size_t chunk = std::size_t{data[0]} + 1;
  const std::string whole = ReadAll(stream, size);
  if (ReadAll(stream, chunk) != whole || ReadPlainly(stream) != whole) std::abort();
  return 0;
}
