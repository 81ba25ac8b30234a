#include "tunnel/packet_queue.h"

#include <utility>

namespace tunnel {

void PacketQueue::Start() {
  const platform::MutexLock lock(queueLock_);
  packets_.clear();
  isStopped_ = false;
}

void PacketQueue::Stop() {
  {
    const platform::MutexLock lock(queueLock_);
    isStopped_ = true;
  }
  changed_.NotifyAll();
}

void PacketQueue::EnqueueOutbound(Packet packet) {
  {
    const platform::MutexLock lock(queueLock_);
    if (packets_.size() >= kCapacity) packets_.pop_front();
    packets_.push_back(std::move(packet));
  }
  changed_.NotifyOne();
}

std::optional<Packet> PacketQueue::Take() {
  const platform::MutexLock lock(queueLock_);
  while (packets_.empty() && !isStopped_) changed_.Wait(queueLock_);
  if (isStopped_) return std::nullopt;
  Packet packet = std::move(packets_.front());
  packets_.pop_front();
  return packet;
}

void PacketQueue::Clear() {
  const platform::MutexLock lock(queueLock_);
  packets_.clear();
}

std::size_t PacketQueue::Size() const {
  const platform::MutexLock lock(queueLock_);
  return packets_.size();
}

}  // namespace tunnel
