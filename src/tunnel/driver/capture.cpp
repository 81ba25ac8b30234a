#include "tunnel/driver/capture.h"

#include <chrono>
#include <optional>
#include <thread>
#include <vector>

#include "text/ipv4_text.h"
#include "text/strings.h"

namespace tunnel {
namespace {

// A driver that is gone for good fails every receive at once; the pause keeps that from taking a
// whole processor until the tunnel is stopped.
constexpr std::chrono::milliseconds kPauseAfterFailure{1};

// Which end it is when `packet` gets no checksums.
CaptureEnd EndFor(std::span<const std::byte> packet, const TunnelFlags& flags) noexcept {
  if (!flags.KeepGoing()) return CaptureEnd::Stopped;
  return IsFirstFragment(packet) ? CaptureEnd::ByFragment : CaptureEnd::ByOtherError;
}

void HandleCaptured(std::span<std::byte> bytes, const WinDivertAddress& address, Driver& driver,
                    PacketPath& path) {
  if (ValidatePacket(bytes)) {
    path.HandleOutbound(bytes, address);
  } else {
    driver.Inject(bytes, address);
  }
}

}  // namespace

std::wstring RouteClause(const RouteMapping& mapping) {
  const Ipv4Network mapped = mapping.Mapped();
  return L"(ip.DstAddr >= " + text::FormatIpv4(FirstAddress(mapped)) + L" and ip.DstAddr <= " +
         text::FormatIpv4(LastAddress(mapped)) + L")";
}

std::wstring BuildCaptureFilter(std::span<const RouteMapping> mappings, bool discoveryMode) {
  std::vector<std::wstring> clauses;
  for (const RouteMapping& mapping : mappings) clauses.push_back(RouteClause(mapping));
  const std::wstring routed = L"(icmp or tcp or udp) and (" + text::Join(clauses, L" or ") + L")";
  // Not what other drivers inject: taking it could make two drivers pass one packet round for ever.
  const std::wstring outbound = L"outbound and ip and !impostor and ";
  if (!discoveryMode) return outbound + routed;
  return outbound + L"((" + routed + L") or (udp and ip.DstAddr == 255.255.255.255))";
}

CaptureEnd CaptureLoop(const TunnelFlags& flags, Driver& driver, PacketPath& path) noexcept {
  std::vector<std::byte> buffer;
  try {
    buffer.resize(kMaxPacketBytes + kReadableBehindPacket);
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
    return CaptureEnd::Stopped;
  } catch (const ChecksumError&) {
    // Rewriting a packet leaves its fragment field alone.
    return EndFor(buffer, flags);
  } catch (...) {
    // The transports go on; the relay still answers what is under way.
    return CaptureEnd::ByOtherError;
  }
}

}  // namespace tunnel
