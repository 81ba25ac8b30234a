#include "tunnel/driver/capture_filter.h"

#include <vector>

#include "text/ipv4_text.h"
#include "text/strings.h"

namespace tunnel {

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

}  // namespace tunnel
