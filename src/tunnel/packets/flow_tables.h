#pragma once

#include <array>
#include <compare>
#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <vector>

#include "tunnel/packets/routes.h"

namespace tunnel {

// Identifies a flow by the outbound packet after its rewrite. Ordered field by field; addresses and
// ports in host order.
struct FlowKey {
  std::uint8_t protocol = 0;
  std::uint32_t source = 0;           // the tunnel address
  std::uint16_t sourcePort = 0;       // for ICMP the identifier
  std::uint32_t destination = 0;      // the site's real address
  std::uint16_t destinationPort = 0;  // for ICMP 0

  friend auto operator<=>(const FlowKey&, const FlowKey&) = default;
};

// Routes an answer back to the program on this computer that asked.
struct FlowEntry {
  std::uint32_t localSource = 0;           // this computer's address, before the rewrite
  std::uint32_t addressedDestination = 0;  // the (mapped) address used by the program
  std::uint32_t interfaceIndex = 0;        // of the captured packet
  std::uint32_t subInterfaceIndex = 0;

  friend bool operator==(const FlowEntry&, const FlowEntry&) = default;
};

// An ordered table of flows: a B+ tree with nodes of about a kilobyte, so that a look-up among
// 100 000 flows touches 4 nodes where a binary tree touches 17. Single flows are never removed.
//
// Threads: none inside; one caller at a time.
// Owns:    34 to 70 bytes a flow.
class FlowTree {
 public:
  // nullptr if not found; valid until the next Set() or Clear().
  [[nodiscard]] const FlowEntry* Find(const FlowKey& key) const noexcept;
  // Inserts or replaces. Allocates only for a new key.
  void Set(const FlowKey& key, const FlowEntry& entry);
  void Clear() noexcept;
  [[nodiscard]] std::size_t Size() const noexcept { return size_; }

 private:
  // A FlowKey as one number with the same order. By default an unused place, above all keys.
  struct Packed {
    std::uint64_t high = ~std::uint64_t{0};  // protocol, source, source port
    std::uint64_t low = ~std::uint64_t{0};   // destination, destination port

    explicit Packed(const FlowKey& key) noexcept;
    Packed() noexcept = default;
    friend bool operator==(const Packed&, const Packed&) = default;
    friend bool operator<(const Packed& a, const Packed& b) noexcept {
      return a.high < b.high || (a.high == b.high && a.low < b.low);
    }
  };
  struct Node {
    std::size_t count = 0;  // of the keys
  };
  struct Leaf : Node {
    static constexpr std::size_t kCapacity = 32;
    std::array<Packed, kCapacity> keys;
    std::array<FlowEntry, kCapacity> entries;
  };
  // Child i holds the keys below key i; the last child holds the rest.
  struct Inner : Node {
    static constexpr std::size_t kCapacity = 64;
    std::array<Packed, kCapacity> keys;
    std::array<Node*, kCapacity + 1> children{};
  };
  // The result of a split, for the parent: the new right node and its smallest key.
  struct Split {
    Packed key;
    Node* right = nullptr;
  };

  template <std::size_t capacity>
  static std::size_t CountBelow(const std::array<Packed, capacity>& keys, const Packed& key,
                                bool orEqual) noexcept;
  [[nodiscard]] Leaf* FindLeaf(const Packed& key) const noexcept;
  Leaf* NewLeaf();
  Inner* NewInner();
  Split SplitLeaf(Leaf& leaf, const Packed& key);
  Split SplitInner(Inner& inner);
  Split SplitIfFull(Node& node, std::size_t height, const Packed& key);
  static void InsertChild(Inner& parent, const Split& split) noexcept;
  Leaf& MakeRoom(const Packed& key);

  Node* root_ = nullptr;
  std::size_t height_ = 0;  // levels of inner nodes above the leaves
  std::size_t size_ = 0;
  std::vector<std::unique_ptr<Leaf>> leaves_;
  std::vector<std::unique_ptr<Inner>> inners_;
};

// A broadcast question, which any host of the network may answer. Ordered field by field.
struct BroadcastKey {
  std::uint32_t realNetwork = 0;
  std::uint32_t realPrefix = 0;
  std::uint16_t destinationPort = 0;  // of the outbound packet
  std::uint16_t sourcePort = 0;

  friend auto operator<=>(const BroadcastKey&, const BroadcastKey&) = default;
};
using BroadcastEntry = FlowEntry;

// The flows of one tunnel. Entries live as long as the tunnel; none expire.
//
// Threads: none inside; the packet path calls it under its packet lock.
class FlowTables {
 public:
  // Both replace an existing entry.
  void RecordFlow(const FlowKey& key, const FlowEntry& entry) { flows_.Set(key, entry); }
  void RecordBroadcast(const BroadcastKey& key, const BroadcastEntry& entry) {
    broadcasts_[key] = entry;
  }

  // Both results: nullptr if not found, valid until the next record or clear.
  [[nodiscard]] const FlowEntry* FindFlow(const FlowKey& key) const noexcept {
    return flows_.Find(key);
  }

  // The broadcast that a UDP packet from `source` may answer: the first in table order whose
  // network contains `source` and whose ports are the answer's, swapped.
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
