#include <cstdint>
#include <cstdlib>
#include <stdexcept>
#include <string_view>

#include "text/strings.h"
#include "text/utf8.h"
#include "tunnel/capture_filter.h"
#include "tunnel/route_index.h"

namespace tunnel {
namespace {

void CheckMappings(const std::vector<RouteMapping>& mappings) {
  const RouteIndex index(mappings);
  for (std::size_t a = 0; a < mappings.size(); ++a) {
    const Ipv4Network mapped = mappings[a].Mapped();
    if (FirstAddress(mapped) != mapped.network) std::abort();
    if (index.Find(LastAddress(mapped)) != &index.Mappings()[a]) std::abort();
    for (std::size_t b = a + 1; b < mappings.size(); ++b) {
      if (Overlaps(mapped, mappings[b].Mapped())) std::abort();
    }
  }
}

// Every line is a route; every other one also one of the computer's own networks.
void Run(std::string_view bytes) {
  const std::vector<std::wstring> lines = text::SplitLines(text::FromUtf8(bytes));
  const std::vector<Ipv4Network> routes = ParseRoutes(lines);
  std::vector<Ipv4Network> locals;
  for (std::size_t index = 0; index < routes.size(); index += 2) locals.push_back(routes[index]);
  for (const Ipv4Network& route : routes) {
    const std::vector<std::wstring> text{FormatNetwork(route)};
    if (ParseRoutes(text) != std::vector{route}) std::abort();
  }
  try {
    const std::vector<RouteMapping> mappings = BuildRouteMappings(routes, locals);
    if (mappings.size() != routes.size()) std::abort();
    CheckMappings(mappings);
    BuildCaptureFilter(mappings, true);
    DescribeRoutes(mappings);
  } catch (const std::runtime_error&) {
  }
}

}  // namespace
}  // namespace tunnel

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t sizeBytes) {
  tunnel::Run({reinterpret_cast<const char*>(data), sizeBytes});
  return 0;
}
