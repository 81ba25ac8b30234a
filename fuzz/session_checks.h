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

// Checks what both sides of a tunnel receive. Everything here aborts on a violation.
namespace fuzz {

// The interface of every captured packet.
inline constexpr std::uint32_t kInterface = 12;

// The packets that programs on this computer may receive: from the address that answers (first), to
// their own.
using Answers = std::set<std::pair<std::uint32_t, std::uint32_t>>;

// A driver that accepts only whole packets, on kInterface, with addresses in `answers`. One at a
// time, because its function table has no object pointer. `answers` must outlive it.
std::unique_ptr<tunnel::WinDivertApi> CheckingDriver(const Answers& answers);
// The number of its open handles.
std::size_t OpenDriverHandles();
// Makes the driver refuse to inject packets and to open further handles.
void SetDriverFailing(bool isFailing);

// Requires a whole packet for the relay and returns a copy.
tunnel::Bytes CheckedPacket(std::span<const std::byte> packet, std::uint32_t tunnelAddress);

// The bytes that the program sends to the relay, on successive streams.
class SentStream {
 public:
  using Take = std::function<void(std::span<const std::byte> packet)>;

  // `onPacket` is called for the payload of each binary frame.
  explicit SentStream(Take onPacket) : onPacket_(std::move(onPacket)) {}

  void Begin();
  // In chunks cut anywhere: a request up to its empty line, then masked frames with packets and
  // pongs.
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
