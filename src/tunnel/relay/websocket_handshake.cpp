#include "tunnel/relay/websocket_handshake.h"

#include <charconv>

#include "text/utf8.h"

namespace tunnel {
namespace {

constexpr std::string_view kEndOfHeader = "\r\n\r\n";

}  // namespace

std::string BuildHandshakeRequest(std::wstring_view pathAndQuery, std::wstring_view host) {
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

}  // namespace tunnel
