#pragma once

#include <cstddef>
#include <span>
#include <string>
#include <string_view>

// The WebSocket opening handshake (RFC 6455, section 4), the client's side. Pure.
namespace tunnel {

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

}  // namespace tunnel
