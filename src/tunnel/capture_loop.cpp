#include "tunnel/capture_loop.h"

#include <chrono>
#include <optional>
#include <thread>
#include <vector>

namespace tunnel {
namespace {

// A driver that is gone for good fails every receive at once; the pause keeps that from taking a
// whole processor until the tunnel is stopped.
constexpr std::chrono::milliseconds kPauseAfterFailure{1};

void HandleCaptured(std::span<std::byte> bytes, const WinDivertAddress& address, Driver& driver,
                    PacketPath& path) {
  if (ValidatePacket(bytes)) {
    path.HandleOutbound(bytes, address);
  } else {
    driver.Inject(bytes, address);
  }
}

}  // namespace

void CaptureLoop(const TunnelFlags& flags, Driver& driver, PacketPath& path) noexcept {
  try {
    std::vector<std::byte> buffer(kMaxPacketBytes + kReadableBehindPacket);
    while (flags.KeepGoing()) {
      WinDivertAddress address;
      const std::optional<std::size_t> length =
          driver.Receive(std::span(buffer).first(kMaxPacketBytes), address);
      if (length) {
        HandleCaptured(std::span(buffer).first(*length), address, driver, path);
      } else {
        std::this_thread::sleep_for(kPauseAfterFailure);
      }
    }
  } catch (...) {
    // The transports go on; the relay still answers what is under way.
  }
}

}  // namespace tunnel
