#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <set>
#include <span>
#include <utility>

#include "tunnel/driver/windivert.h"
#include "tunnel/relay/test_frames.h"

// What both sides of a tunnel may see. Everything here aborts when they see anything else.
namespace fuzz {

// The interface of every captured packet.
inline constexpr std::uint32_t kInterface = 12;

// What programs on this computer may hear: the address that answers (first), their own.
using Answers = std::set<std::pair<std::uint32_t, std::uint32_t>>;

// A driver that takes only whole packets, on kInterface, with addresses in `answers`. One at a
// time, as its table has no place for an object; `answers` must outlive it.
std::unique_ptr<tunnel::WinDivertApi> CheckingDriver(const Answers& answers);
// How many of its handles are open.
std::size_t OpenDriverHandles();
// Whether it refuses what it is to inject, and to open further handles, from now on.
void SetDriverFailing(bool isFailing);

// Any whole packet that goes to the relay; returns a copy.
tunnel::Bytes CheckedPacket(std::span<const std::byte> packet, std::uint32_t tunnelAddress);

// What the program sends to the relay by one stream after the other.
class SentStream {
 public:
  using Take = std::function<void(std::span<const std::byte> packet)>;

  // `onPacket` is called for the payload of each binary frame.
  explicit SentStream(Take onPacket) : onPacket_(std::move(onPacket)) {}

  void Begin();
  // Cut anywhere: first a request up to its empty line, then masked frames with packets and pongs.
  void Add(std::span<const std::byte> bytes);

 private:
  bool TakeRequest();
  bool TakeFrame();
  void Drop(std::size_t bytes);

  Take onPacket_;
  tunnel::Bytes pending_;
  bool isUpgraded_ = false;
};

}  // namespace fuzz
