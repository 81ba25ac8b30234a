#pragma once

#include <cstddef>
#include <memory>
#include <span>

namespace tunnel {

// The bytes of a stream that have arrived and are not read yet, one behind the other in memory.
//
// Threads: none inside; one caller at a time.
// Owns:    the memory, which grows while what is unread does not fit and shrinks once it is read.
//          At least kReadableBehindPacket bytes behind what is unread can be read.
class ReceiveBuffer {
 public:
  ReceiveBuffer();

  // Where the next bytes go: at least `bytes` of room behind what is unread. Moves what is unread.
  std::span<std::byte> Room(std::size_t bytes);
  // So many have come into the room.
  void Add(std::size_t bytes) noexcept;

  [[nodiscard]] std::span<std::byte> Unread() noexcept {
    return {bytes_.get() + begin_, end_ - begin_};
  }
  // The first `bytes` of what is unread are read. They stay where they are until the next Room().
  void Take(std::size_t bytes) noexcept;
  void Clear() noexcept { begin_ = end_ = 0; }

 private:
  void Resize(std::size_t capacity);

  std::size_t capacity_ = 0;
  std::unique_ptr<std::byte[]> bytes_;
  std::size_t begin_ = 0;
  std::size_t end_ = 0;
};

}  // namespace tunnel
