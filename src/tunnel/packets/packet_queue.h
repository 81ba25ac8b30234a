#pragma once

#include <cstddef>
#include <span>
#include <vector>

#include "platform/mutex.h"
#include "tunnel/packets/packet.h"

namespace tunnel {

// Packets on their way to the relay, oldest first. A full queue drops its oldest packet, so that
// fresh traffic wins over stale and the producer never waits.
//
// Threads: any; one producer (capture) and one consumer (sender) in the program. Its lock is taken
//          inside the packet lock, never around it.
// Owns:    the packets' memory, which goes round: what Take() gets back serves the packets to come,
//          so that in a steady stream nothing is allocated.
class PacketQueue {
 public:
  static constexpr std::size_t kCapacity = 4096;
  // What one Take() gives at most, unless the first packet alone is longer: what one send to the
  // relay carries, a frame's header counted with each packet. More would wait in the sender's
  // hands, where the oldest cannot be dropped any more.
  static constexpr std::size_t kBatchBytes = 65536;
  static constexpr std::size_t kFrameHeaderBytes = 8;
  // The most packets in a batch: the shortest that the packet path lets through have 28 bytes.
  static constexpr std::size_t kBatchPackets = kBatchBytes / (28 + kFrameHeaderBytes);

  PacketQueue();

  // A new queue is stopped: Take() gives nothing until Start(). Start() forgets what an earlier
  // tunnel left.
  void Start() EXCLUDES(queueLock_);

  // Ends every Take(), waiting and to come, until the next Start(). What is queued stays.
  void Stop() EXCLUDES(queueLock_);

  // Appends a copy, dropping the oldest packet of a full queue, and wakes one waiting consumer.
  // Also takes packets while stopped; they are bounded by the capacity and go with the next
  // Start().
  void EnqueueOutbound(std::span<const std::byte> packet) EXCLUDES(queueLock_);

  // Waits for a packet, without limit, and moves all that wait into `batch`, oldest first, as far
  // as kBatchBytes go. What was in `batch` is taken back as memory. False, with nothing in it, once
  // stopped, even if packets are left.
  [[nodiscard]] bool Take(std::vector<Packet>& batch) EXCLUDES(queueLock_);

  // Also gives the memory back to the system.
  void Clear() EXCLUDES(queueLock_);
  [[nodiscard]] std::size_t Size() const EXCLUDES(queueLock_);

 private:
  Packet& At(std::size_t index) REQUIRES(queueLock_);
  void Recycle(Packet packet) REQUIRES(queueLock_);
  void Forget() REQUIRES(queueLock_);

  mutable platform::Mutex queueLock_;
  platform::Condition changed_;
  // kCapacity places, of which `size_` from `oldest_` on are taken, round the end.
  std::vector<Packet> places_ GUARDED_BY(queueLock_);
  std::size_t oldest_ GUARDED_BY(queueLock_) = 0;
  std::size_t size_ GUARDED_BY(queueLock_) = 0;
  std::vector<Packet> spare_ GUARDED_BY(queueLock_);  // memory for packets to come, last used last
  std::size_t largeSpareBytes_ GUARDED_BY(queueLock_) = 0;  // of those over the usual size
  std::size_t waiting_ GUARDED_BY(queueLock_) = 0;          // consumers
  bool isStopped_ GUARDED_BY(queueLock_) = true;
};

}  // namespace tunnel
