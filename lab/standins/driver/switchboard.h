#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "driver/filter.h"
#include "driver/packet_queue.h"

namespace driver {

// One open handle's settings, queue and counters.
struct Handle {
  std::uint64_t id = 0;
  int priority = 0;
  std::uint64_t flags = 0;
  std::string filterText;
  Filter filter;
  PacketQueue queue;
  bool receivingEnded = false;  // by Shutdown: nothing more is captured
  bool sendingEnded = false;
  bool isClosed = false;
  int callersInside = 0;  // of Recv

  std::uint64_t capturedCount = 0;
  std::uint64_t receivedCount = 0;
  std::uint64_t inboundCount = 0;   // injected towards this host
  std::uint64_t outboundCount = 0;  // injected towards the network
  std::uint64_t drainedCount = 0;   // sent on unread when closed
};

// The open handles in the order in which they see a packet: by priority, higher first, then in
// order of opening.
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
    bool isTaken = false;                         // it does not go on
    std::vector<std::shared_ptr<Handle>> queued;  // handles whose queue got it; wake their callers
  };
  // Shows a packet to the handles that come after `sender` (null: to all) until one takes it;
  // sniffing handles get a copy. A packet whose length is not what its IP header says passes
  // unseen, whatever the filters.
  Offer Show(const Packet& packet, const Address& address, const Handle* sender,
             std::int64_t nowMs);

 private:
  // Handles captured packets out as checksum offload does: sums zeroed, valid bits cleared.
  static void Queue(Handle& handle, const Packet& packet, Address address, const Headers& headers,
                    std::int64_t nowMs);

  std::vector<std::shared_ptr<Handle>> order_;
  std::uint64_t lastId_ = 0;
};

}  // namespace driver
