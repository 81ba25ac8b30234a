// Input: adapters ("+192.168.1.5/24"; "-" instead of "+" if it is down) and routes, one per line.
// Compares this computer's networks, the routes' mapped networks, the captured addresses and the
// route of each packet with a linear search.

#include <stdexcept>
#include <vector>

#include "fuzz_input.h"
#include "text/ipv4_text.h"
#include "text/strings.h"
#include "tunnel/adapter_list.h"
#include "tunnel/driver/capture.h"
#include "tunnel/packets/ipv4.h"
#include "tunnel/packets/routes.h"

namespace tunnel {
namespace {

using fuzz::Require;
using Networks = std::vector<Ipv4Network>;

constexpr std::size_t kMaxLines = 64;  // the searches are quadratic
constexpr Ipv4Network kNatSpace{0xAC1F0000, 16};

bool IsTaken(const Networks& taken, const Ipv4Network& network) {
  return std::ranges::any_of(taken, [&](const Ipv4Network& other) {
    return Contains(network, other.network) || Contains(other, network.network);
  });
}

Networks PlainLocals(const std::vector<AdapterAddress>& adapters) {
  Networks locals;
  for (const AdapterAddress& adapter : adapters) {
    const bool isSkipped = !adapter.isAdapterUp || Contains({0x7F000000, 8}, adapter.address) ||
                           Contains({0xA9FE0000, 16}, adapter.address);
    const std::uint32_t prefix = adapter.onLinkPrefix > 32 ? 32 : adapter.onLinkPrefix;
    if (!isSkipped) locals.push_back({adapter.address & MaskOf(prefix), prefix});
  }
  return locals;
}

// Empty if no block of that size is free.
std::optional<Ipv4Network> PlainSubstitute(const Networks& taken, std::uint32_t prefix) {
  if (prefix < kNatSpace.prefix) return std::nullopt;
  const std::uint32_t step = ~MaskOf(prefix) + 1;
  for (Ipv4Network block{kNatSpace.network, prefix}; Contains(kNatSpace, block.network);
       block.network += step) {
    if (!IsTaken(taken, block)) return block;
  }
  return std::nullopt;
}

std::optional<std::vector<RouteMapping>> PlainMappings(Networks routes, Networks taken) {
  std::ranges::stable_sort(routes, {}, [](const Ipv4Network& route) {
    return std::uint64_t{route.network} << 8 | route.prefix;
  });
  std::vector<RouteMapping> mappings;
  for (const Ipv4Network& route : routes) {
    const bool isNat = IsTaken(taken, route);
    const auto mapped = isNat ? PlainSubstitute(taken, route.prefix) : std::optional(route);
    if (!mapped) return std::nullopt;
    taken.push_back(*mapped);
    mappings.push_back({route.network, route.prefix, mapped->network, mapped->prefix, isNat});
  }
  return mappings;
}

const RouteMapping* PlainFind(const std::vector<RouteMapping>& mappings, std::uint32_t address) {
  const RouteMapping* best = nullptr;
  for (const RouteMapping& mapping : mappings) {
    if (!Contains(mapping.Mapped(), address)) continue;
    if (best == nullptr || mapping.mappedPrefix > best->mappedPrefix) best = &mapping;
  }
  return best;
}

// Each network's first and last addresses and their neighbours; the highest address wraps to 0.
std::vector<std::uint32_t> AddressesAround(const Networks& networks) {
  std::vector<std::uint32_t> addresses = {0, 0x7F000001, 0xAC1F0000, 0xAC1FFFFF, 0xFFFFFFFF};
  for (const Ipv4Network& network : networks) {
    const std::uint32_t first = FirstAddress(network);
    const std::uint32_t last = LastAddress(network);
    addresses.insert(addresses.end(),
                     {first, first - 1, last, last + 1, first + (last - first) / 2});
  }
  return addresses;
}

void CheckIndex(const std::vector<RouteMapping>& mappings, const Networks& around) {
  const RouteIndex index(mappings);
  Require(index.Mappings() == mappings);
  for (const std::uint32_t address : AddressesAround(around)) {
    const RouteMapping* const found = index.Find(address);
    const RouteMapping* const wanted = PlainFind(index.Mappings(), address);
    Require(found == wanted || (found && wanted && *found == *wanted));
  }
}

// The last address of the first run of taken addresses in `network`.
std::optional<std::uint32_t> PlainFindTaken(const Networks& taken, const Ipv4Network& network) {
  std::uint64_t end = std::uint64_t{LastAddress(network)} + 1;  // one past the network
  std::uint64_t at = end;
  for (const Ipv4Network& other : taken) {
    if (!IsTaken({other}, network)) continue;
    at = std::min<std::uint64_t>(at, std::max(other.network, network.network));
  }
  if (at == end) return std::nullopt;
  for (bool hasGrown = true; hasGrown;) {
    hasGrown = false;
    for (const Ipv4Network& other : taken) {
      if (other.network > at || LastAddress(other) < at) continue;
      at = std::uint64_t{LastAddress(other)} + 1;
      hasGrown = true;
    }
  }
  return static_cast<std::uint32_t>(at - 1);
}

void CheckRanges(const Networks& networks) {
  AddressRanges ranges;
  Networks taken;
  for (const Ipv4Network& network : networks) {
    Require(ranges.FindTaken(network) == PlainFindTaken(taken, network));
    ranges.Add(network);
    taken.push_back(network);
  }
  for (const Ipv4Network& network : networks) {
    const Ipv4Network after{(LastAddress(network) + 1) & MaskOf(network.prefix), network.prefix};
    Require(ranges.FindTaken(after) == PlainFindTaken(taken, after));
  }
}

// The filter's address ranges, in its order.
std::vector<std::pair<std::uint32_t, std::uint32_t>> RangesIn(std::wstring_view filter) {
  constexpr std::wstring_view kFrom = L"(ip.DstAddr >= ";
  constexpr std::wstring_view kTo = L" and ip.DstAddr <= ";
  std::vector<std::pair<std::uint32_t, std::uint32_t>> ranges;
  for (std::size_t at = filter.find(kFrom); at != std::wstring_view::npos;
       at = filter.find(kFrom)) {
    filter.remove_prefix(at + kFrom.size());
    const std::size_t to = filter.find(kTo);
    const std::size_t end = filter.find(L')');
    Require(to < end && end != std::wstring_view::npos);
    const auto first = text::ParseIpv4(filter.substr(0, to));
    const auto last = text::ParseIpv4(filter.substr(to + kTo.size(), end - to - kTo.size()));
    Require(first && last);
    ranges.emplace_back(*first, *last);
  }
  return ranges;
}

void CheckFilter(const std::vector<RouteMapping>& mappings) {
  const std::wstring filter = BuildCaptureFilter(mappings, false);
  const auto ranges = RangesIn(filter);
  Require(RangesIn(BuildCaptureFilter(mappings, true)) == ranges);
  Require(ranges.size() == mappings.size());
  Networks mapped;
  for (const RouteMapping& mapping : mappings) mapped.push_back(mapping.Mapped());
  for (const std::uint32_t address : AddressesAround(mapped)) {
    const bool isCaptured = std::ranges::any_of(ranges, [&](const auto& range) {
      return address >= range.first && address <= range.second;
    });
    Require(isCaptured == (PlainFind(mappings, address) != nullptr));
  }
  CheckIndex(mappings, mapped);
}

void CheckOverlaps(const std::vector<RouteMapping>& mappings, const Networks& locals) {
  std::size_t wanted = 0;
  const std::vector<RouteOverlap> overlaps = FindOverlaps(mappings, locals);
  for (const RouteMapping& mapping : mappings) {
    if (!IsTaken(locals, mapping.Mapped())) continue;
    Require(wanted < overlaps.size() && overlaps[wanted].mapped == mapping.Mapped());
    const auto first = std::ranges::find_if(
        locals, [&](const Ipv4Network& local) { return IsTaken({local}, mapping.Mapped()); });
    Require(overlaps[wanted++].local == *first);
  }
  Require(wanted == overlaps.size());
}

void CheckMappings(const Networks& routes, const Networks& locals, const Networks& joinedSince) {
  const auto wanted = PlainMappings(routes, locals);
  std::optional<std::vector<RouteMapping>> mappings;
  try {
    mappings = BuildRouteMappings(routes, locals);
  } catch (const std::runtime_error&) {
    // No substitute is free.
  }
  Require(mappings == wanted);
  if (!mappings || mappings->empty()) return;
  CheckFilter(*mappings);
  CheckOverlaps(*mappings, locals);
  CheckOverlaps(*mappings, joinedSince);
  DescribeRoutes(*mappings);
}

// `line` without its sign.
AdapterAddress ReadAdapter(std::wstring_view line, bool isUp) {
  const std::size_t slash = std::min(line.find(L'/'), line.size());
  AdapterAddress adapter{isUp, text::ParseIpv4(line.substr(0, slash)).value_or(0), 0};
  for (const wchar_t digit : line.substr(slash)) {
    if (digit >= L'0' && digit <= L'9') {
      adapter.onLinkPrefix =
          (adapter.onLinkPrefix * 10 + static_cast<std::uint32_t>(digit - L'0')) % 256;
    }
  }
  return adapter;
}

void Run(fuzz::Input input) {
  std::vector<AdapterAddress> adapters;
  std::vector<std::wstring> lines;
  for (std::size_t count = 0; count < kMaxLines && !input.IsEmpty(); ++count) {
    const std::wstring line = input.WideLine();
    if (line.starts_with(L'+') || line.starts_with(L'-')) {
      adapters.push_back(ReadAdapter(line.substr(1), line.front() == L'+'));
    } else {
      lines.push_back(line);
    }
  }
  const Networks locals = SelectLocalNetworks(adapters);
  Require(locals == PlainLocals(adapters));
  const Networks routes = ParseRoutes(lines);
  CheckMappings(routes, locals, routes);

  Networks all = locals;
  all.insert(all.end(), routes.begin(), routes.end());
  CheckRanges(all);
  // Unlike a tunnel's mappings, these may overlap, repeat and have any order.
  std::vector<RouteMapping> mappings;
  for (const Ipv4Network& network : all) {
    mappings.push_back({network.network, network.prefix, network.network, network.prefix, false});
  }
  CheckIndex(mappings, all);
}

}  // namespace
}  // namespace tunnel

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t sizeBytes) {
  tunnel::Run(fuzz::Input(data, sizeBytes));
  return 0;
}
