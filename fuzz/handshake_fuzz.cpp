// Feeds any bytes to the handshake reader in any chunks. The first byte of the input picks the
// chunk size. State, status and remaining bytes must not depend on it and must match a simple
// second implementation.

#include <algorithm>
#include <cstdlib>
#include <string>
#include <tuple>

#include "tunnel/relay/websocket_protocol.h"

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

// Checks the status only if it is three digits after one blank; the reader may accept other forms.
void CheckPlainly(std::span<const std::byte> response, const Outcome& outcome) {
  std::string text(response.size(), '\0');
  std::ranges::transform(response, text.begin(),
                         [](std::byte byte) { return std::to_integer<char>(byte); });
  const std::size_t end = text.substr(0, tunnel::kMaxHandshakeBytes).find("\r\n\r\n");
  const auto& [state, status, taken] = outcome;
  const bool isDone = end != std::string::npos;
  if (isDone != (state == tunnel::HandshakeState::Done)) std::abort();
  if (!isDone) return;
  if (taken != end + 4) std::abort();
  const bool isUsual = text.starts_with("HTTP/1.1 ") && text.size() > 12 && text[12] == ' ';
  const std::string code = isUsual ? text.substr(9, 3) : "x";
  if (code.find_first_not_of("0123456789") != std::string::npos) return;
  if (status != std::stoi(code)) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  const auto response = std::as_bytes(std::span(data, size)).subspan(1);
  const std::size_t chunk = std::size_t{data[0]} + 1;
  const Outcome whole = ReadAll(response, size);
  if (ReadAll(response, chunk) != whole) std::abort();
  CheckPlainly(response, whole);
  return 0;
}
