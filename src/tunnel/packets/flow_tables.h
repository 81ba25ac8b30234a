#pragma once

#include <compare>
#include <cstddef>
#include <cstdint>
#include <map>

#include "tunnel/packets/flow_tree.h"
#include "tunnel/packets/routes.h"

namespace tunnel {

// An asked broadcast: any host of the network may answer it. Ordered field by field.
struct BroadcastKey {
  std::uint32_t realNetwork = 0;
  std::uint32_t realPrefix = 0;
  std::uint16_t destinationPort = 0;  // of the outbound packet
  std::uint16_t sourcePort = 0;

  friend auto operator<=>(const BroadcastKey&, const BroadcastKey&) = default;
};
using BroadcastEntry = FlowEntry;

// The flows of one tunnel. Entries live as long as the tunnel: nothing ages out.
//
// Threads: none inside; the packet path calls it under its packet lock.
class FlowTables {
 public:
  // Record replaces an entry that is there.
  void RecordFlow(const FlowKey& key, const FlowEntry& entry) { flows_.Set(key, entry); }
  void RecordBroadcast(const BroadcastKey& key, const BroadcastEntry& entry) {
    broadcasts_[key] = entry;
  }

  // nullptr when there is none; valid until something is recorded or cleared, as is the next.
  [[nodiscard]] const FlowEntry* FindFlow(const FlowKey& key) const noexcept {
    return flows_.Find(key);
  }

  // The broadcast that a UDP packet from `source` may answer: first in table order whose network
  // holds `source` and whose ports are the answer's, swapped. nullptr when there is none.
  [[nodiscard]] const BroadcastEntry* FindBroadcast(std::uint32_t source, std::uint16_t sourcePort,
                                                    std::uint16_t destinationPort) const;

  void Clear() noexcept;
  [[nodiscard]] std::size_t FlowCount() const noexcept { return flows_.Size(); }
  [[nodiscard]] std::size_t BroadcastCount() const noexcept { return broadcasts_.size(); }

 private:
  FlowTree flows_;
  std::map<BroadcastKey, BroadcastEntry> broadcasts_;
};

}  // namespace tunnel
