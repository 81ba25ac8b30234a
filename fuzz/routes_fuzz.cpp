// Input: the service's routes, one per line. They are parsed as by a simple second parser, and
// mapped so that no two networks that this computer uses overlap.

#include <arpa/inet.h>

#include <cstdint>
#include <cstdlib>
#include <cwchar>
#include <stdexcept>
#include <string_view>

#include "text/strings.h"
#include "text/utf8.h"
#include "tunnel/driver/capture.h"
#include "tunnel/packets/routes.h"

namespace tunnel {
namespace {

// Uses the system's parsers of addresses and numbers, which stop at a zero.
std::vector<Ipv4Network> ReadPlainly(const std::vector<std::wstring>& lines) {
  std::vector<Ipv4Network> routes;
  for (const std::wstring& line : lines) {
    const std::wstring route = text::Trim(line);
    const std::size_t slash = route.find(L'/');
    if (slash == std::wstring::npos) continue;
    const std::string address = text::ToUtf8(route.substr(0, slash));
    in_addr addressBe{};
    const bool isAddress = address.find('\0') == std::string::npos &&
                           ::inet_pton(AF_INET, address.c_str(), &addressBe) == 1;
    const long prefix = std::wcstol(text::Trim(route.substr(slash + 1)).c_str(), nullptr, 10);
    if (!isAddress || prefix < 0 || prefix > 32) continue;
    const auto length = static_cast<std::uint32_t>(prefix);
    routes.push_back({ntohl(addressBe.s_addr) & MaskOf(length), length});
  }
  return routes;
}

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

// Every line is a route; every second one is also one of this computer's networks.
void Run(std::string_view bytes) {
  const std::vector<std::wstring> lines = text::SplitLines(text::FromUtf8(bytes));
  const std::vector<Ipv4Network> routes = ParseRoutes(lines);
  if (routes != ReadPlainly(lines)) std::abort();
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
