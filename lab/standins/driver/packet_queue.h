#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <optional>
#include <vector>

#include "driver/record.h"

namespace driver {

using Packet = std::vector<std::uint8_t>;

struct Captured {
  Packet bytes;
  Address address;
};

// What one handle has captured and nobody has received yet. A full queue gives up its oldest
// packets; a packet that waited too long is given up when the queue is next touched.
//
// Threads: none inside; the owner locks. Times are in milliseconds of any steady clock.
class PacketQueue {
 public:
  enum class Param { Length = 0, TimeMs = 1, SizeBytes = 2 };

  // False, with nothing changed, for a value outside the published limits.
  bool SetParam(Param param, std::uint64_t value) noexcept;
  [[nodiscard]] std::uint64_t GetParam(Param param) const noexcept;

  void Push(Captured captured, std::int64_t nowMs);
  // The oldest packet.
  [[nodiscard]] std::optional<Captured> Pop(std::int64_t nowMs);
  [[nodiscard]] bool IsEmpty() const noexcept { return entries_.empty(); }
  // Packets given up so far.
  [[nodiscard]] std::uint64_t LostCount() const noexcept { return lostCount_; }

 private:
  struct Entry {
    Captured captured;
    std::int64_t arrivedMs;
  };
  void LoseOldest() noexcept;
  void LoseExpired(std::int64_t nowMs) noexcept;

  std::deque<Entry> entries_;
  std::size_t sizeBytes_ = 0;
  std::uint64_t lostCount_ = 0;
  std::uint64_t maxLength_ = 4096;
  std::uint64_t maxTimeMs_ = 2000;
  std::uint64_t maxSizeBytes_ = 4194304;
};

}  // namespace driver
