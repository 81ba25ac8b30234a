#include "tunnel/driver/capture.h"

#include <chrono>
#include <optional>
#include <thread>
#include <vector>

#include "text/ipv4_text.h"
#include "text/strings.h"

namespace tunnel {
namespace {

// A driver that has gone away fails every receive at once; without the pause the loop would occupy
// a whole processor until the tunnel stops.
constexpr std::chrono::milliseconds kPauseAfterFailure{1};

CaptureEnd EndAfterChecksumError(std::span<const std::byte> packet,
                                 const TunnelFlags& flags) noexcept {
  if (!flags.KeepGoing()) return CaptureEnd::Stopped;
  // The rewrite does not touch the fragment field, so it still holds the captured value.
  return IsFirstFragment(packet) ? CaptureEnd::ByFragment : CaptureEnd::ByOtherError;
}

}  // namespace

std::wstring RouteClause(const RouteMapping& mapping) {
  const Ipv4Network mapped = mapping.Mapped();
  // The filter language knows no prefixes, and compares only dotted numbers as addresses.
  return L"(ip.DstAddr >= " + text::FormatIpv4(FirstAddress(mapped)) + L" and ip.DstAddr <= " +
         text::FormatIpv4(LastAddress(mapped)) + L")";
}

std::wstring BuildCaptureFilter(std::span<const RouteMapping> mappings, bool discoveryMode) {
  std::vector<std::wstring> clauses;
  for (const RouteMapping& mapping : mappings) clauses.push_back(RouteClause(mapping));
  // The driver accepts 255 tests in one filter: six of ours, two more for discovery, two per route.
  // A later fragment has no transport header and does not match; the first one ends the capture.
  const std::wstring routed = L"(icmp or tcp or udp) and (" + text::Join(clauses, L" or ") + L")";
  // Without !impostor two drivers could capture and inject one packet in turns for ever.
  const std::wstring outbound = L"outbound and ip and !impostor and ";
  if (!discoveryMode) return outbound + routed;
  return outbound + L"((" + routed + L") or (udp and ip.DstAddr == 255.255.255.255))";
}

CaptureEnd CaptureLoop(const TunnelFlags& flags, Driver& driver, PacketPath& path) noexcept {
  std::vector<std::byte> buffer;
  try {
    // Inside the try: lack of memory ends the capture, not the program.
    buffer.resize(kMaxPacketBytes + kReadableBehindPacket);
    while (flags.KeepGoing()) {
      WinDivertAddress address;
      const std::optional<std::size_t> length =
          driver.Receive(std::span(buffer).first(kMaxPacketBytes), address);
      if (!length) {
        std::this_thread::sleep_for(kPauseAfterFailure);
        continue;
      }
      const std::span<std::byte> captured = std::span(buffer).first(*length);
      // The filter also matches packets that the tunnel cannot carry. They continue as captured.
      if (!path.HandleOutbound(captured, address)) driver.Inject(captured, address);
    }
    return CaptureEnd::Stopped;
  } catch (const ChecksumError&) {
    return EndAfterChecksumError(buffer, flags);
  } catch (...) {
    // The relay threads keep running, so questions already sent still get their answers.
    return CaptureEnd::ByOtherError;
  }
}

}  // namespace tunnel
