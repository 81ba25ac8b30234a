#pragma once

#include <cstddef>
#include <deque>
#include <optional>

#include "platform/mutex.h"
#include "tunnel/packet.h"

namespace tunnel {

// Packets on their way to the relay, oldest first. A full queue drops its oldest packet, so that
// fresh traffic wins over stale and the producer never waits.
//
// Threads: any; one producer (capture) and one consumer (sender) in the program. Its lock is taken
//          inside the packet lock, never around it.
class PacketQueue {
 public:
  static constexpr std::size_t kCapacity = 4096;

  // A new queue is stopped: Take() gives nothing until Start(). Start() forgets what an earlier
  // tunnel left.
  void Start() EXCLUDES(queueLock_);

  // Ends every Take(), waiting and to come, until the next Start(). What is queued stays.
  void Stop() EXCLUDES(queueLock_);

  // Appends, dropping the oldest packet of a full queue, and wakes one waiting consumer. Also takes
  // packets while stopped; they are bounded by the capacity and go with the next Start().
  void EnqueueOutbound(Packet packet) EXCLUDES(queueLock_);

  // Waits for a packet, without limit, and takes the oldest; nothing once stopped, even if packets
  // are left.
  [[nodiscard]] std::optional<Packet> Take() EXCLUDES(queueLock_);

  void Clear() EXCLUDES(queueLock_);
  [[nodiscard]] std::size_t Size() const EXCLUDES(queueLock_);

 private:
  mutable platform::Mutex queueLock_;
  platform::Condition changed_;
  std::deque<Packet> packets_ GUARDED_BY(queueLock_);
  bool isStopped_ GUARDED_BY(queueLock_) = true;
};

}  // namespace tunnel
