#pragma once

#include <cstddef>
#include <optional>
#include <utility>
#include <vector>

#include "tunnel/packets/packet_queue.h"

namespace tunnel {

// Reads a queue packet by packet. The queue's Size() no longer counts the packets of the batch that
// this holds.
class QueueReader {
 public:
  explicit QueueReader(PacketQueue& queue) : queue_(queue) {}

  // Waits for a packet; empty once the queue is stopped and the batch used up.
  std::optional<Packet> Next() {
    if (next_ == batch_.size()) {
      next_ = 0;
      if (!queue_.Take(batch_)) return std::nullopt;
    }
    return batch_[next_++];
  }
  // All available packets, without waiting.
  std::vector<Packet> Rest() {
    std::vector<Packet> packets;
    while (next_ < batch_.size() || queue_.Size() > 0) packets.push_back(Next().value());
    return packets;
  }

 private:
  PacketQueue& queue_;
  std::vector<Packet> batch_;
  std::size_t next_ = 0;
};

}  // namespace tunnel
