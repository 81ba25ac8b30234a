#include "driver/switchboard.h"

#include <algorithm>
#include <utility>

#include "driver/checksums.h"

namespace driver {

std::shared_ptr<Handle> Switchboard::Add(Filter filter, std::string filterText, int priority,
                                         std::uint64_t flags) {
  auto handle = std::make_shared<Handle>();
  handle->id = ++lastId_;
  handle->priority = priority;
  handle->flags = flags;
  handle->filterText = std::move(filterText);
  handle->filter = std::move(filter);
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
