#include "tunnel/packets/flow_tables.h"

#include <algorithm>
#include <limits>

namespace tunnel {
namespace {

constexpr std::uint16_t kMaxPort = std::numeric_limits<std::uint16_t>::max();

}  // namespace

FlowTree::Packed::Packed(const FlowKey& key) noexcept
    // The fields in their order of comparison, most significant first.
    : high(std::uint64_t{key.protocol} << 48 | std::uint64_t{key.source} << 16 | key.sourcePort),
      low(std::uint64_t{key.destination} << 16 | key.destinationPort) {}

// Counts the keys below `key`, or not above it if `orEqual`; unused places never count. Two rounds:
// first the last key of each eighth, then all keys of the eighth in question. The comparisons
// within a round are independent, so the processor runs them in parallel; in a binary search each
// would wait for the one before, or be predicted.
template <std::size_t capacity>
std::size_t FlowTree::CountBelow(const std::array<Packed, capacity>& keys, const Packed& key,
                                 bool orEqual) noexcept {
  constexpr std::size_t kEighth = capacity / 8;
  const auto isBelow = [&key, orEqual](const Packed& other) -> std::size_t {
    const auto isLess = static_cast<std::size_t>(other.high < key.high);
    const auto isSame = static_cast<std::size_t>(other.high == key.high);
    const auto isLow = static_cast<std::size_t>(other.low < key.low);
    const auto isEqual = static_cast<std::size_t>(other.low == key.low);
    return isLess | (isSame & (isLow | (isEqual & static_cast<std::size_t>(orEqual))));
  };
  std::size_t eighth = 0;
  for (std::size_t i = 0; i < 7; ++i) eighth += isBelow(keys[i * kEighth + kEighth - 1]);
  std::size_t count = eighth * kEighth;
  for (std::size_t i = 0; i < kEighth; ++i) count += isBelow(keys[eighth * kEighth + i]);
  return count;
}

FlowTree::Leaf* FlowTree::FindLeaf(const Packed& key) const noexcept {
  Node* node = root_;
  for (std::size_t level = height_; level > 0; --level) {
    const Inner& inner = static_cast<const Inner&>(*node);
    // A key equal to a separator belongs to the right child, hence `orEqual`.
    node = inner.children[CountBelow(inner.keys, key, true)];
  }
  return static_cast<Leaf*>(node);
}

const FlowEntry* FlowTree::Find(const FlowKey& key) const noexcept {
  if (root_ == nullptr) return nullptr;
  const Packed packed(key);
  const Leaf& leaf = *FindLeaf(packed);
  const std::size_t at = CountBelow(leaf.keys, packed, false);
  // `at` is past the last place if every key of a full leaf is below.
  return at < leaf.count && leaf.keys[at] == packed ? &leaf.entries[at] : nullptr;
}

void FlowTree::Set(const FlowKey& key, const FlowEntry& entry) {
  // A known key must not reach MakeRoom(), which would split full nodes for it.
  if (const FlowEntry* const found = Find(key)) {
    // Find() is const for readers; the entry belongs to this tree, which is not.
    *const_cast<FlowEntry*>(found) = entry;
    return;
  }
  const Packed packed(key);
  Leaf& leaf = MakeRoom(packed);
  const std::size_t at = CountBelow(leaf.keys, packed, false);
  std::copy_backward(&leaf.keys[at], &leaf.keys[leaf.count], &leaf.keys[leaf.count + 1]);
  std::copy_backward(&leaf.entries[at], &leaf.entries[leaf.count], &leaf.entries[leaf.count + 1]);
  leaf.keys[at] = packed;
  leaf.entries[at] = entry;
  ++leaf.count;
  ++size_;
}

// Returns the leaf for `key`, with a free place. Splits every full node on the way down, so that a
// split never propagates upwards.
FlowTree::Leaf& FlowTree::MakeRoom(const Packed& key) {
  if (root_ == nullptr) root_ = NewLeaf();
  // Only here does the tree grow in height: above a full root, which the loop then splits.
  if (root_->count == (height_ > 0 ? Inner::kCapacity : Leaf::kCapacity)) {
    Inner* const root = NewInner();
    root->children[0] = root_;
    root_ = root;
    ++height_;
  }
  Node* node = root_;
  for (std::size_t level = height_; level > 0; --level) {
    Inner& inner = static_cast<Inner&>(*node);
    node = inner.children[CountBelow(inner.keys, key, true)];
    // Before the descent, so that `inner` always has a place for the separator.
    const Split split = SplitIfFull(*node, level - 1, key);
    if (split.right == nullptr) continue;
    InsertChild(inner, split);
    if (!(key < split.key)) node = split.right;
  }
  return static_cast<Leaf&>(*node);
}

FlowTree::Split FlowTree::SplitIfFull(Node& node, std::size_t height, const Packed& key) {
  if (height > 0) {
    return node.count == Inner::kCapacity ? SplitInner(static_cast<Inner&>(node)) : Split{};
  }
  return node.count == Leaf::kCapacity ? SplitLeaf(static_cast<Leaf&>(node), key) : Split{};
}

// Splits in halves, except for a key above all others, which starts a new leaf. Programs use
// ascending ports, so this leaves full leaves behind instead of half-empty ones.
FlowTree::Split FlowTree::SplitLeaf(Leaf& leaf, const Packed& key) {
  Leaf* const right = NewLeaf();
  if (leaf.keys[leaf.count - 1] < key) return {key, right};
  const std::size_t half = leaf.count / 2;
  right->count = leaf.count - half;
  std::copy_n(&leaf.keys[half], right->count, right->keys.begin());
  std::copy_n(&leaf.entries[half], right->count, right->entries.begin());
  // CountBelow() reads all places: those left must hold the greatest value again.
  std::fill_n(&leaf.keys[half], right->count, Packed());
  leaf.count = half;
  return {right->keys[0], right};
}

FlowTree::Split FlowTree::SplitInner(Inner& inner) {
  Inner* const right = NewInner();
  const std::size_t half = inner.count / 2;
  const Packed key = inner.keys[half];  // moves to the parent
  right->count = inner.count - half - 1;
  std::copy_n(&inner.keys[half + 1], right->count, right->keys.begin());
  std::copy_n(&inner.children[half + 1], right->count + 1, right->children.begin());
  std::fill_n(&inner.keys[half], right->count + 1, Packed());
  inner.count = half;
  return {key, right};
}

// `parent` must have a free place.
void FlowTree::InsertChild(Inner& parent, const Split& split) noexcept {
  const std::size_t at = CountBelow(parent.keys, split.key, false);
  for (std::size_t index = parent.count; index > at; --index) {
    parent.keys[index] = parent.keys[index - 1];
    parent.children[index + 1] = parent.children[index];
  }
  parent.keys[at] = split.key;
  parent.children[at + 1] = split.right;
  ++parent.count;
}

FlowTree::Leaf* FlowTree::NewLeaf() {
  return leaves_.emplace_back(std::make_unique<Leaf>()).get();
}

FlowTree::Inner* FlowTree::NewInner() {
  return inners_.emplace_back(std::make_unique<Inner>()).get();
}

void FlowTree::Clear() noexcept {
  root_ = nullptr;
  height_ = 0;
  size_ = 0;
  leaves_.clear();
  inners_.clear();
}

const BroadcastEntry* FlowTables::FindBroadcast(std::uint32_t source, std::uint16_t sourcePort,
                                                std::uint16_t destinationPort) const {
  // One look-up per network, in table order; the records of a network are adjacent.
  auto record = broadcasts_.begin();
  while (record != broadcasts_.end()) {
    const std::uint32_t network = record->first.realNetwork;
    const std::uint32_t prefix = record->first.realPrefix;
    if (Contains({network, prefix}, source)) {
      const auto found = broadcasts_.find({network, prefix, sourcePort, destinationPort});
      if (found != broadcasts_.end()) return &found->second;
    }
    // Past the last possible record of this network.
    record = broadcasts_.upper_bound({network, prefix, kMaxPort, kMaxPort});
  }
  return nullptr;
}

void FlowTables::Clear() noexcept {
  flows_.Clear();
  broadcasts_.clear();
}

}  // namespace tunnel
