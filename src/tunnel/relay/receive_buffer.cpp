#include "tunnel/relay/receive_buffer.h"

#include <algorithm>
#include <cassert>
#include <cstring>

#include "tunnel/packets/packet.h"

namespace tunnel {
namespace {

// Two full reads of a socket: so what is unread seldom has to be moved.
constexpr std::size_t kUsualCapacity = 131072;

}  // namespace

ReceiveBuffer::ReceiveBuffer() {
  Resize(kUsualCapacity);
}

std::span<std::byte> ReceiveBuffer::Room(std::size_t bytes) {
  const std::size_t unread = end_ - begin_;
  const bool isOversized = capacity_ > kUsualCapacity && unread + bytes <= kUsualCapacity;
  if (isOversized) {
    Resize(kUsualCapacity);
  } else if (unread + bytes > capacity_) {
    Resize(std::max(2 * capacity_, unread + bytes));
  } else if (bytes > capacity_ - end_ || unread == 0) {
    std::memmove(bytes_.get(), bytes_.get() + begin_, unread);
    begin_ = 0;
    end_ = unread;
  }
  return {bytes_.get() + end_, capacity_ - end_};
}

void ReceiveBuffer::Add(std::size_t bytes) noexcept {
  assert(bytes <= capacity_ - end_);
  end_ += bytes;
}

void ReceiveBuffer::Take(std::size_t bytes) noexcept {
  assert(bytes <= end_ - begin_);
  begin_ += bytes;
}

// Keeps what is unread, at the start.
void ReceiveBuffer::Resize(std::size_t capacity) {
  auto bytes = std::make_unique_for_overwrite<std::byte[]>(capacity + kReadableBehindPacket);
  const std::size_t unread = end_ - begin_;
  if (unread > 0) std::memcpy(bytes.get(), bytes_.get() + begin_, unread);
  // Never written, and read by nothing that looks at what it finds there.
  std::memset(bytes.get() + capacity, 0, kReadableBehindPacket);
  bytes_ = std::move(bytes);
  capacity_ = capacity;
  begin_ = 0;
  end_ = unread;
}

}  // namespace tunnel
