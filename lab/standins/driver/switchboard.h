#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "driver/filter.h"
#include "driver/packet.h"

namespace driver {

using Packet = std::vector<std::uint8_t>;

struct Captured {
  Packet bytes;
  Address address;
};

// One handle's captured packets that wait for a receive. A full queue drops its oldest packets; an
// expired packet is dropped at the next access.
//
// Threads: none inside; the owner locks. Times are in milliseconds of any steady clock.
class PacketQueue {
 public:
  enum class Param { Length = 0, TimeMs = 1, SizeBytes = 2 };

  // Refuses values outside the published limits.
  bool SetParam(Param param, std::uint64_t value) noexcept;
  [[nodiscard]] std::uint64_t GetParam(Param param) const noexcept;

  void Push(Captured captured, std::int64_t nowMs);
  [[nodiscard]] std::optional<Captured> Pop(std::int64_t nowMs);
  [[nodiscard]] bool IsEmpty() const noexcept { return entries_.empty(); }
  // Packets dropped so far.
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

// One open handle's settings, queue and counters.
struct Handle {
  std::uint64_t id = 0;
  int priority = 0;
  std::uint64_t flags = 0;
  std::string filterText;
  Filter filter;
  PacketQueue queue;
  bool receivingEnded = false;  // by Shutdown; captures nothing more
  bool sendingEnded = false;
  bool isClosed = false;
  int callersInside = 0;  // of Recv

  std::uint64_t capturedCount = 0;
  std::uint64_t receivedCount = 0;
  std::uint64_t inboundCount = 0;   // injected towards this host
  std::uint64_t outboundCount = 0;  // injected towards the network
  std::uint64_t drainedCount = 0;   // sent on unread when closed
};

// The open handles in the order in which they see a packet: higher priority first, then older
// first.
//
// Threads: none inside; the owner locks.
class Switchboard {
 public:
  std::shared_ptr<Handle> Add(Filter filter, std::string filterText, int priority,
                              std::uint64_t flags);
  // Null for an unknown or removed id.
  [[nodiscard]] std::shared_ptr<Handle> Find(std::uint64_t id) const;
  void Remove(std::uint64_t id);
  [[nodiscard]] bool IsEmpty() const noexcept { return order_.empty(); }

  struct Offer {
    bool isTaken = false;                         // not sent on
    std::vector<std::shared_ptr<Handle>> queued;  // wake the callers waiting in these
  };
  // Offers a packet to the handles after `sender` (null: to all) until one takes it; sniffing
  // handles get a copy. A packet whose length differs from its IP header's passes unseen.
  Offer Show(const Packet& packet, const Address& address, const Handle* sender,
             std::int64_t nowMs);

 private:
  // Queues the packet as checksum offload would deliver it: sums zeroed, valid bits cleared.
  static void Queue(Handle& handle, const Packet& packet, Address address, const Headers& headers,
                    std::int64_t nowMs);

  std::vector<std::shared_ptr<Handle>> order_;
  std::uint64_t lastId_ = 0;
};

}  // namespace driver
