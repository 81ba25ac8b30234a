#include <algorithm>
#include <utility>

#include "driver/checksums.h"
#include "driver/driver_win.h"
#include "driver/packet.h"

namespace driver {
namespace {

constexpr std::size_t kSourceAt = 12;
constexpr std::size_t kDestinationAt = 16;

std::int64_t NowMs() noexcept {
  return static_cast<std::int64_t>(::GetTickCount64());
}

std::int64_t NowTicks() noexcept {
  LARGE_INTEGER ticks = {};
  ::QueryPerformanceCounter(&ticks);
  return ticks.QuadPart;
}

}  // namespace

void Driver::HandleFromTun(std::span<const std::uint8_t> bytes) {
  const Packet packet(bytes.begin(), bytes.end());
  if (!ReadHeaders(packet)) return;  // IPv6 router solicitations, for one
  const Locked locked(lock_);
  const std::int64_t nowMs = NowMs();
  const auto offer = switchboard_.Show(packet, DescribeCaptured(packet, nowMs), nullptr, nowMs);
  if (!offer.queued.empty()) changed_.WakeAll();
  // The namespace has no other way out: a packet that no handle takes is dropped.
  if (!offer.isTaken) ++uncapturedCount_;
}

Address Driver::DescribeCaptured(const Packet& packet, std::int64_t nowMs) {
  const std::uint32_t source = ReadU32Be(packet, kSourceAt);
  const std::uint32_t destination = ReadU32Be(packet, kDestinationAt);
  Address address;
  address.timestamp = NowTicks();
  address.flags = kAddressOutbound;
  if (source == destination || destination >> 24U == 127) address.flags |= kAddressLoopback;
  address.interfaceIndex = adapters_.FindByAddress(source, nowMs);
  if (address.interfaceIndex == 0) address.interfaceIndex = Adapters::FindRoute(destination);
  return address;
}

std::uint32_t Driver::Recv(std::uint64_t id, std::span<std::uint8_t> buffer,
                           std::uint32_t* gotBytes, Address* address) {
  Captured captured;
  {
    const Locked locked(lock_);
    const auto handle = switchboard_.Find(id);
    if (handle == nullptr) return kErrorInvalidHandle;
    if ((handle->flags & kFlagSendOnly) != 0) return kErrorInvalidParameter;
    if (recvFault_.IsNow()) return kErrorBadCommand;
    ++handle->callersInside;
    const std::uint32_t error = WaitForPacket(*handle, captured);
    Leave(*handle);
    if (error != kOk) return error;
  }
  // As with the real driver, a packet that does not fit is cut, and its rest is lost.
  const std::size_t bytes = std::min(buffer.size(), captured.bytes.size());
  std::copy_n(captured.bytes.begin(), bytes, buffer.begin());
  if (address != nullptr) *address = captured.address;
  if (bytes < captured.bytes.size()) return kErrorInsufficientBuffer;
  if (gotBytes != nullptr) *gotBytes = static_cast<std::uint32_t>(bytes);
  return kOk;
}

std::uint32_t Driver::WaitForPacket(Handle& handle, Captured& captured) {
  for (;;) {
    if (handle.isClosed) return kErrorOperationAborted;
    // Shutdown still delivers the queue, so it is checked only once the queue is empty.
    if (auto oldest = handle.queue.Pop(NowMs())) {
      captured = std::move(*oldest);
      ++handle.receivedCount;
      return kOk;
    }
    if (handle.receivingEnded) return kErrorNoData;
    changed_.Wait(lock_);
  }
}

void Driver::Leave(Handle& handle) {
  --handle.callersInside;
  if (handle.isClosed) changed_.WakeAll();
}

std::uint32_t Driver::Send(std::uint64_t id, std::span<const std::uint8_t> bytes,
                           const Address& address) {
  Packet packet;
  std::shared_ptr<Handle> handle;
  Fate fate = Fate::Ends;
  std::uint32_t error = kOk;
  {
    const Locked locked(lock_);
    handle = switchboard_.Find(id);
    if (handle == nullptr) return kErrorInvalidHandle;
    if ((handle->flags & kFlagRecvOnly) != 0) return kErrorInvalidParameter;
    if (handle->sendingEnded) return kErrorBadCommand;
    if (sendFault_.IsNow()) return kErrorHostUnreachable;
    if (const std::uint32_t refused = CheckInjection(bytes, address); refused != kOk) {
      return refused;
    }
    packet.assign(bytes.begin(), bytes.begin() + ReadU16Be(bytes, 2));
    error = Judge(*handle, packet, address, fate);
    if (error != kOk || fate == Fate::Ends) return error;
    ++handle->callersInside;
  }
  // Without lock_, so that sending never delays the bridge's thread. The count keeps the handle,
  // and with it the bridge, until Leave().
  bridge_.Send(packet);
  const Locked locked(lock_);
  Leave(*handle);
  return kOk;
}

std::uint32_t Driver::Judge(Handle& handle, Packet& packet, const Address& address, Fate& fate) {
  const auto headers = ReadHeaders(packet);
  const bool outbound = (address.flags & kAddressOutbound) != 0;
  fate = Fate::Continues;
  // A packet injected by another driver loses a hop each time, so that drivers cannot loop it.
  if ((address.flags & kAddressImpostor) != 0 && !DecrementTtl(packet)) {
    return kErrorHostUnreachable;
  }
  if (outbound) {
    CompleteChecksums(packet, *headers, address);
  } else if (const std::uint32_t error = JudgeInbound(packet, *headers, address, fate);
             error != kOk) {
    return error;
  }
  ++(outbound ? handle.outboundCount : handle.inboundCount);
  if (fate == Fate::Ends) return kOk;
  Address shown = address;
  shown.timestamp = NowTicks();
  const auto offer = switchboard_.Show(packet, shown, &handle, NowMs());
  if (!offer.queued.empty()) changed_.WakeAll();
  if (offer.isTaken) fate = Fate::Ends;
  return kOk;
}

std::uint32_t Driver::JudgeInbound(const Packet& packet, const Headers& headers,
                                   const Address& address, Fate& fate) {
  const std::int64_t nowMs = NowMs();
  if (!adapters_.Exists(address.interfaceIndex, nowMs)) return kErrorInvalidParameter;
  if (!HasValidChecksums(packet, headers)) {
    ++wrongChecksumCount_;
    fate = Fate::Ends;
  } else if (adapters_.FindByAddress(ReadU32Be(packet, kDestinationAt), nowMs) !=
             address.interfaceIndex) {
    ++wrongInterfaceCount_;
    fate = Fate::Ends;
  }
  return kOk;
}

}  // namespace driver
