#include "driver/packet_queue.h"

#include <utility>

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

}  // namespace driver
