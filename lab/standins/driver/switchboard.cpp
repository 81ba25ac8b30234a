#include "driver/switchboard.h"

#include <algorithm>
#include <utility>

#include "driver/checksums.h"

namespace driver {
namespace {

struct Limits {
  std::uint64_t least;
  std::uint64_t most;
};

constexpr Limits LimitsOf(PacketQueue::Param param) noexcept {
  switch (param) {
    case PacketQueue::Param::Length:
      return {32, 16384};
    case PacketQueue::Param::TimeMs:
      return {100, 16000};
    case PacketQueue::Param::SizeBytes:
      return {65535, 33554432};
  }
  return {1, 0};  // no such parameter: refuses every value
}

}  // namespace

bool PacketQueue::SetParam(Param param, std::uint64_t value) noexcept {
  const Limits limits = LimitsOf(param);
  if (value < limits.least || value > limits.most) return false;
  if (param == Param::Length) maxLength_ = value;
  if (param == Param::TimeMs) maxTimeMs_ = value;
  if (param == Param::SizeBytes) maxSizeBytes_ = value;
  return true;
}

std::uint64_t PacketQueue::GetParam(Param param) const noexcept {
  if (param == Param::Length) return maxLength_;
  return param == Param::TimeMs ? maxTimeMs_ : maxSizeBytes_;
}

void PacketQueue::Push(Captured captured, std::int64_t nowMs) {
  LoseExpired(nowMs);
  const std::size_t bytes = captured.bytes.size();
  while (!entries_.empty() &&
         (entries_.size() >= maxLength_ || bytes > maxSizeBytes_ - sizeBytes_)) {
    LoseOldest();
  }
  sizeBytes_ += bytes;
  entries_.push_back({std::move(captured), nowMs});
}

std::optional<Captured> PacketQueue::Pop(std::int64_t nowMs) {
  LoseExpired(nowMs);
  if (entries_.empty()) return std::nullopt;
  Captured oldest = std::move(entries_.front().captured);
  entries_.pop_front();
  sizeBytes_ -= oldest.bytes.size();
  return oldest;
}

void PacketQueue::LoseOldest() noexcept {
  sizeBytes_ -= entries_.front().captured.bytes.size();
  entries_.pop_front();
  ++lostCount_;
}

void PacketQueue::LoseExpired(std::int64_t nowMs) noexcept {
  while (!entries_.empty() &&
         nowMs - entries_.front().arrivedMs > static_cast<std::int64_t>(maxTimeMs_)) {
    LoseOldest();
  }
}

std::shared_ptr<Handle> Switchboard::Add(Filter filter, std::string filterText, int priority,
                                         std::uint64_t flags) {
  auto handle = std::make_shared<Handle>();
  handle->id = ++lastId_;
  handle->priority = priority;
  handle->flags = flags;
  handle->filterText = std::move(filterText);
  handle->filter = std::move(filter);
  // Behind all handles of the same priority: the older one sees a packet first.
  const auto place = std::find_if(order_.begin(), order_.end(), [priority](const auto& other) {
    return other->priority < priority;
  });
  order_.insert(place, handle);
  return handle;
}

std::shared_ptr<Handle> Switchboard::Find(std::uint64_t id) const {
  const auto found = std::find_if(order_.begin(), order_.end(),
                                  [id](const auto& handle) { return handle->id == id; });
  return found == order_.end() ? nullptr : *found;
}

void Switchboard::Remove(std::uint64_t id) {
  std::erase_if(order_, [id](const auto& handle) { return handle->id == id; });
}

Switchboard::Offer Switchboard::Show(const Packet& packet, const Address& address,
                                     const Handle* sender, std::int64_t nowMs) {
  Offer offer;
  const auto headers = ReadHeaders(packet);
  if (!headers || headers->totalBytes != packet.size()) return offer;
  const PacketView view{packet, headers, address};
  bool reached = sender == nullptr;
  for (const auto& handle : order_) {
    if (!reached) {
      reached = handle.get() == sender;
      continue;
    }
    if (handle->receivingEnded || !handle->filter.Matches(view)) continue;
    ++handle->capturedCount;
    if ((handle->flags & kFlagDrop) == 0) {
      Queue(*handle, packet, address, *headers, nowMs);
      offer.queued.push_back(handle);
    }
    // A sniffing handle only copies; the packet continues to the next handle.
    offer.isTaken = (handle->flags & kFlagSniff) == 0;
    if (offer.isTaken) break;
  }
  return offer;
}

void Switchboard::Queue(Handle& handle, const Packet& packet, Address address,
                        const Headers& headers, std::int64_t nowMs) {
  Captured captured{packet, address};
  ClearChecksums(captured.bytes, headers);
  captured.address.flags &= ~(kAddressIpChecksum | kAddressTcpChecksum | kAddressUdpChecksum);
  if ((handle.flags & kFlagSniff) != 0) captured.address.flags |= kAddressSniffed;
  handle.queue.Push(std::move(captured), nowMs);
}

}  // namespace driver
