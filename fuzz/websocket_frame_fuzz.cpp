// The frame reader over any bytes in any chunks. The first byte of the input picks the chunk sizes.
// Whatever the chunks, the events and payloads must be the same as for the whole input at once.

#include <algorithm>
#include <cstdlib>
#include <string>

#include "tunnel/receive_buffer.h"
#include "tunnel/websocket_frame.h"

namespace {

// Everything the reader makes of `stream`, as one text; event names cannot be mistaken for bytes,
// as each payload goes with its length.
std::string ReadAll(std::span<const std::byte> stream, std::size_t chunk) {
  tunnel::FrameReader reader;
  tunnel::ReceiveBuffer buffer;
  std::string seen;
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
      if (result.event == tunnel::FrameEvent::Ended) return seen + "ended";
      const std::span<const std::byte> payload = reader.Payload();
      if (payload.size() > tunnel::kMaxMessageBytes) std::abort();
      seen += result.event == tunnel::FrameEvent::Message ? "message " : "ping ";
      seen += std::to_string(payload.size()) + ":";
      for (const std::byte byte : payload) seen += std::to_integer<char>(byte);
    }
  }
  return seen;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  const auto stream = std::as_bytes(std::span(data, size)).subspan(1);
  const std::size_t chunk = std::size_t{data[0]} + 1;
  if (ReadAll(stream, chunk) != ReadAll(stream, size)) std::abort();
  return 0;
}
