// The handshake reader over any bytes in any chunks. The first byte of the input picks the chunk
// sizes; state, status and the bytes left over must not depend on them.

#include <algorithm>
#include <cstdlib>
#include <tuple>

#include "tunnel/websocket_handshake.h"

namespace {

using Outcome = std::tuple<tunnel::HandshakeState, int, std::size_t>;

Outcome ReadAll(std::span<const std::byte> response, std::size_t chunk) {
  tunnel::HandshakeReader reader;
  tunnel::HandshakeReader::Result result;
  std::size_t taken = 0;
  while (taken < response.size() && result.state == tunnel::HandshakeState::NeedMore) {
    const auto piece = response.subspan(taken, std::min(chunk, response.size() - taken));
    result = reader.Feed(piece);
    if (result.takenBytes > piece.size()) std::abort();
    taken += result.takenBytes;
  }
  if (taken > tunnel::kMaxHandshakeBytes) std::abort();
  const bool isDone = result.state == tunnel::HandshakeState::Done;
  return {result.state, isDone ? reader.Status() : 0, taken};
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  const auto response = std::as_bytes(std::span(data, size)).subspan(1);
  const std::size_t chunk = std::size_t{data[0]} + 1;
  if (ReadAll(response, chunk) != ReadAll(response, size)) std::abort();
  return 0;
}
