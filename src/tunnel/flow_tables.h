#pragma once

#include <compare>
#include <cstddef>
#include <cstdint>
#include <map>

#include "tunnel/routes.h"

namespace tunnel {

// What tells one flow from another, as the outbound packet looks after its rewrite. Ordered field
// by field. Addresses and ports in host order.
struct FlowKey {
  std::uint8_t protocol = 0;
  std::uint32_t source = 0;           // the tunnel address
  std::uint16_t sourcePort = 0;       // for ICMP the identifier
  std::uint32_t destination = 0;      // the site's real address
  std::uint16_t destinationPort = 0;  // for ICMP 0

  friend auto operator<=>(const FlowKey&, const FlowKey&) = default;
};

// How an answer gets back to the program on this computer that asked.
struct FlowEntry {
  std::uint32_t localSource = 0;           // this computer's address, before the rewrite
  std::uint32_t addressedDestination = 0;  // the (mapped) address that the program used
  std::uint32_t interfaceIndex = 0;        // of the captured packet
  std::uint32_t subInterfaceIndex = 0;

  friend bool operator==(const FlowEntry&, const FlowEntry&) = default;
};

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
  void RecordFlow(const FlowKey& key, const FlowEntry& entry) { flows_[key] = entry; }
  void RecordBroadcast(const BroadcastKey& key, const BroadcastEntry& entry) {
    broadcasts_[key] = entry;
  }

  // nullptr when there is none; valid until Clear().
  [[nodiscard]] const FlowEntry* FindFlow(const FlowKey& key) const;

  // The broadcast that a UDP packet from `source` may answer: first in table order whose network
  // holds `source` and whose ports are the answer's, swapped. nullptr when there is none.
  [[nodiscard]] const BroadcastEntry* FindBroadcast(std::uint32_t source, std::uint16_t sourcePort,
                                                    std::uint16_t destinationPort) const;

  void Clear() noexcept;
  [[nodiscard]] std::size_t FlowCount() const noexcept { return flows_.size(); }
  [[nodiscard]] std::size_t BroadcastCount() const noexcept { return broadcasts_.size(); }

 private:
  std::map<FlowKey, FlowEntry> flows_;
  std::map<BroadcastKey, BroadcastEntry> broadcasts_;
};

}  // namespace tunnel
