#include "link.h"

#include <utility>

#include "text.h"

namespace browser {

BodyWriter& BodyWriter::U8(uint8_t value) {
  bytes_.push_back(static_cast<char>(value));
  return *this;
}

BodyWriter& BodyWriter::U32(uint32_t value) {
  for (int shift = 0; shift < 32; shift += 8) U8(static_cast<uint8_t>(value >> shift));
  return *this;
}

BodyWriter& BodyWriter::U64(uint64_t value) {
  return U32(static_cast<uint32_t>(value)).U32(static_cast<uint32_t>(value >> 32));
}

BodyWriter& BodyWriter::Text(std::wstring_view text) {
  bytes_ += ToUtf8(text);
  return *this;
}

uint8_t BodyReader::U8() {
  const std::string_view byte = Bytes(1);
  return byte.empty() ? uint8_t{0} : static_cast<uint8_t>(byte[0]);
}

uint32_t BodyReader::U32() {
  uint32_t value = 0;
  for (int shift = 0; shift < 32; shift += 8) value |= static_cast<uint32_t>(U8()) << shift;
  return value;
}

uint64_t BodyReader::U64() {
  const uint64_t low = U32();
  return low | static_cast<uint64_t>(U32()) << 32;
}

std::string_view BodyReader::Bytes(size_t size) {
  if (size > bytes_.size()) {
    ok_ = false;
    return {};
  }
  const std::string_view taken = bytes_.substr(0, size);
  bytes_.remove_prefix(size);
  return taken;
}

Link::Link() {
  WSADATA data;
  ::WSAStartup(MAKEWORD(2, 2), &data);
}

Link::~Link() {
  Close();
  ::WSACleanup();
}

bool Link::Connect(uint16_t port) {
  const SOCKET fresh = ::socket(AF_INET, SOCK_STREAM, IPPROTO_TCP);
  {
    const std::lock_guard guard(socketLock_);
    // Close() may have run while this socket was being made; it must not stay open then.
    if (closed_) {
      if (fresh != INVALID_SOCKET) ::closesocket(fresh);
      return false;
    }
    socket_ = fresh;
  }
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = ::htons(port);
  address.sin_addr.s_addr = ::htonl(INADDR_LOOPBACK);
  // Mouse and key events are tiny frames, which Nagle's algorithm would delay.
  const BOOL noDelay = TRUE;
  ::setsockopt(fresh, IPPROTO_TCP, TCP_NODELAY, reinterpret_cast<const char*>(&noDelay),
               sizeof(noDelay));
  return ::connect(fresh, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) == 0;
}

bool Link::Send(FromHost kind, const BodyWriter& body) {
  BodyWriter head;
  head.U32(static_cast<uint32_t>(body.Bytes().size())).U8(static_cast<uint8_t>(kind));
  // Head and body in one buffer, so that they leave in one segment.
  const std::string bytes = head.Bytes() + body.Bytes();
  const std::lock_guard guard(sendLock_);
  for (size_t sent = 0; sent < bytes.size();) {
    const int count =
        ::send(Current(), bytes.data() + sent, static_cast<int>(bytes.size() - sent), 0);
    if (count <= 0) return false;
    sent += static_cast<size_t>(count);
  }
  return true;
}

bool Link::Receive(Frame& frame) {
  char head[kFrameHeadBytes];
  if (!ReceiveBytes(head, sizeof(head))) return false;
  BodyReader reader(std::string_view(head, sizeof(head)));
  const uint32_t size = reader.U32();
  frame.kind = static_cast<ToHost>(reader.U8());
  if (size > kMaxFrameBytes) return false;
  frame.body.resize(size);
  return ReceiveBytes(frame.body.data(), size);
}

bool Link::ReceiveBytes(char* bytes, size_t size) {
  while (size > 0) {
    const int count = ::recv(Current(), bytes, static_cast<int>(size), 0);
    if (count <= 0) return false;
    bytes += count;
    size -= static_cast<size_t>(count);
  }
  return true;
}

// Only the read of socket_ needs the lock: holding it across recv() would block Close(), which must
// be able to wake the reading thread.
SOCKET Link::Current() {
  const std::lock_guard guard(socketLock_);
  return socket_;
}

void Link::Close() {
  const std::lock_guard guard(socketLock_);
  closed_ = true;
  const SOCKET old = std::exchange(socket_, INVALID_SOCKET);
  if (old != INVALID_SOCKET) ::closesocket(old);
}

}  // namespace browser
