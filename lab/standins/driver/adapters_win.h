#pragma once

#include <cstdint>
#include <vector>

namespace driver {

// Which adapter holds which IPv4 address, remembered between packets.
//
// Threads: none inside; the owner locks. Addresses are in host order; index 0 is "none".
class Adapters {
 public:
  // The adapter that holds `address`.
  [[nodiscard]] std::uint32_t FindByAddress(std::uint32_t address, std::int64_t nowMs);
  // Whether an adapter with this index is there.
  [[nodiscard]] bool Exists(std::uint32_t index, std::int64_t nowMs);
  // The adapter through which `destination` is reached.
  [[nodiscard]] static std::uint32_t FindRoute(std::uint32_t destination);

 private:
  struct Entry {
    std::uint32_t address;
    std::uint32_t index;
  };
  // Reads the system's list again, but not more often than once a second.
  bool Refresh(std::int64_t nowMs);

  std::vector<Entry> entries_;
  std::int64_t readMs_ = 0;
  bool wasRead_ = false;
};

}  // namespace driver
