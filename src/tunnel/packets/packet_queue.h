#pragma once

#include <cstddef>
#include <span>
#include <vector>

#include "platform/mutex.h"
#include "tunnel/packets/packet.h"

namespace tunnel {

// The packets waiting for the relay, oldest first. A full queue drops its oldest packet: fresh
// traffic wins over stale, and the producer never waits.
//
// Threads: any; one producer (capture) and one consumer (sender) in the program. Its lock is taken
//          inside the packet lock, never around it.
// Owns:    the packets' memory, which is recycled through Take(), so that a steady stream allocates
//          nothing.
class PacketQueue {
 public:
  static constexpr std::size_t kCapacity = 4096;
  // The limit of one Take(), unless the first packet alone is longer: one send to the relay,
  // counting a frame header per packet. More packets would wait in the sender, where the oldest can
  // no longer be dropped.
  static constexpr std::size_t kBatchBytes = 65536;
  static constexpr std::size_t kFrameHeaderBytes = 8;
  // The most packets in a batch; the shortest valid packet has 28 bytes.
  static constexpr std::size_t kBatchPackets = kBatchBytes / (28 + kFrameHeaderBytes);

  PacketQueue();

  // A new queue is stopped: Take() returns false until Start(). Start() discards an earlier
  // tunnel's packets.
  void Start() EXCLUDES(queueLock_);

  // Ends all current and later calls of Take() until the next Start(). Queued packets stay.
  void Stop() EXCLUDES(queueLock_);

  // Appends a copy, dropping the oldest packet of a full queue, and wakes one waiting consumer.
  // Also works while stopped; the next Start() discards those packets.
  void EnqueueOutbound(std::span<const std::byte> packet) EXCLUDES(queueLock_);

  // Waits for a packet, without limit, and moves up to kBatchBytes of packets into `batch`, oldest
  // first. Recycles the previous content of `batch`. False, leaving it empty, once stopped, even if
  // packets are left.
  [[nodiscard]] bool Take(std::vector<Packet>& batch) EXCLUDES(queueLock_);

  // Drops all packets and frees their memory.
  void Clear() EXCLUDES(queueLock_);
  [[nodiscard]] std::size_t Size() const EXCLUDES(queueLock_);

 private:
  Packet& At(std::size_t index) REQUIRES(queueLock_);
  void Recycle(Packet packet) REQUIRES(queueLock_);
  void Forget() REQUIRES(queueLock_);

  mutable platform::Mutex queueLock_;
  platform::Condition changed_;
  // A ring of kCapacity places; `size_` of them, from `oldest_` on, hold packets.
  std::vector<Packet> places_ GUARDED_BY(queueLock_);
  std::size_t oldest_ GUARDED_BY(queueLock_) = 0;
  std::size_t size_ GUARDED_BY(queueLock_) = 0;
  std::vector<Packet> spare_ GUARDED_BY(queueLock_);        // memory to reuse, last used last
  std::size_t largeSpareBytes_ GUARDED_BY(queueLock_) = 0;  // of those over the usual size
  std::size_t waiting_ GUARDED_BY(queueLock_) = 0;          // consumers
  bool isStopped_ GUARDED_BY(queueLock_) = true;
};

}  // namespace tunnel
