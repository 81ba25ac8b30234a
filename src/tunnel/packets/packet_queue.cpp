#include "tunnel/packets/packet_queue.h"

#include <algorithm>
#include <utility>

namespace tunnel {
namespace {

// Memory of packets up to this size is always kept: 8 MiB at most. Larger packets have a limit of
// their own, or a queue full of the longest ones would keep 256 MiB.
constexpr std::size_t kUsualBytes = 2048;
constexpr std::size_t kMaxLargeBytes = 4194304;

}  // namespace

PacketQueue::PacketQueue() : places_(kCapacity) {
  spare_.reserve(kCapacity);
}

void PacketQueue::Start() {
  const platform::MutexLock lock(queueLock_);
  Forget();
  isStopped_ = false;
}

void PacketQueue::Stop() {
  {
    // Under the lock: a consumer that has just checked the flag already receives the notification.
    const platform::MutexLock lock(queueLock_);
    isStopped_ = true;
  }
  changed_.NotifyAll();
}

void PacketQueue::EnqueueOutbound(std::span<const std::byte> packet) {
  bool isAwaited = false;
  {
    const platform::MutexLock lock(queueLock_);
    // The capture thread must never wait: the stalest packet makes room.
    if (size_ == kCapacity) {
      Recycle(std::move(At(0)));
      oldest_ = (oldest_ + 1) % kCapacity;
      --size_;
    }
    Packet& place = At(size_);
    if (!spare_.empty()) {
      place = std::move(spare_.back());
      spare_.pop_back();
      if (place.capacity() > kUsualBytes) largeSpareBytes_ -= place.capacity();
    }
    place.assign(packet.begin(), packet.end());
    ++size_;
    isAwaited = waiting_ > 0;
  }
  // After the lock is released, or the woken consumer would wait for it.
  if (isAwaited) changed_.NotifyOne();
}

bool PacketQueue::Take(std::vector<Packet>& batch) {
  const platform::MutexLock lock(queueLock_);
  // Memory returns to the producer here, so that a steady stream allocates nothing.
  for (Packet& packet : batch) Recycle(std::move(packet));
  batch.clear();
  ++waiting_;
  while (size_ == 0 && !isStopped_) changed_.Wait(queueLock_);
  --waiting_;
  if (isStopped_) return false;
  std::size_t room = kBatchBytes;
  while (size_ > 0) {
    const std::size_t bytes = At(0).size() + kFrameHeaderBytes;
    // A packet over the limit is taken alone; otherwise it would block the queue for ever.
    if (bytes > room && !batch.empty()) break;
    room -= std::min(bytes, room);
    batch.push_back(std::move(At(0)));
    oldest_ = (oldest_ + 1) % kCapacity;
    --size_;
  }
  return true;
}

void PacketQueue::Clear() {
  const platform::MutexLock lock(queueLock_);
  Forget();
}

std::size_t PacketQueue::Size() const {
  const platform::MutexLock lock(queueLock_);
  return size_;
}

// Returns the packet `index` places after the oldest, or the free place behind the newest.
Packet& PacketQueue::At(std::size_t index) {
  return places_[(oldest_ + index) % kCapacity];
}

void PacketQueue::Recycle(Packet packet) {
  const std::size_t large = packet.capacity() > kUsualBytes ? packet.capacity() : 0;
  if (spare_.size() == kCapacity || large > kMaxLargeBytes - largeSpareBytes_) return;
  largeSpareBytes_ += large;
  spare_.push_back(std::move(packet));
}

void PacketQueue::Forget() {
  for (; size_ > 0; --size_) At(size_ - 1) = {};
  spare_.clear();
  largeSpareBytes_ = 0;
}

}  // namespace tunnel
