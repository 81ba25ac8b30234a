#include <array>
#include <cstdlib>
#include <cwchar>
#include <exception>

#include "checks/network_checks.h"
#include "checks/service_checks.h"
#include "diag/proxy_bypass.h"
#include "platform/handles_win.h"
#include "service/http_exchange_win.h"
#include "text/utf8.h"
// After the SDK, which they need.
#include <iphlpapi.h>
#include <netioapi.h>

namespace checks {
namespace {

struct MibTableTraits {
  using Raw = MIB_IPFORWARD_TABLE2*;
  static Raw Invalid() noexcept { return nullptr; }
  static bool IsValid(Raw table) noexcept { return table != nullptr; }
  static void Close(Raw table) noexcept { ::FreeMibTable(table); }
};
using MibTable = platform::UniqueHandle<MibTableTraits>;

struct GlobalTextTraits {
  using Raw = wchar_t*;
  static Raw Invalid() noexcept { return nullptr; }
  static bool IsValid(Raw text) noexcept { return text != nullptr; }
  static void Close(Raw text) noexcept { ::GlobalFree(text); }
};
using GlobalText = platform::UniqueHandle<GlobalTextTraits>;

// Copies and frees a text allocated by WinHTTP.
std::wstring Take(wchar_t* allocated) {
  const GlobalText text(allocated);
  return allocated == nullptr ? std::wstring() : std::wstring(allocated);
}

void ReadRoutes(NetworkFacts& facts) {
  MIB_IPFORWARD_TABLE2* allocated = nullptr;
  facts.routesError = ::GetIpForwardTable2(AF_INET, &allocated);
  // After an error there is no table to free.
  const MibTable table(facts.routesError == NO_ERROR ? allocated : nullptr);
  if (!table) return;
  for (ULONG i = 0; i < table.Get()->NumEntries; ++i) {
    const IP_ADDRESS_PREFIX& prefix = table.Get()->Table[i].DestinationPrefix;
    facts.routes.push_back({::ntohl(prefix.Prefix.Ipv4.sin_addr.s_addr), prefix.PrefixLength});
  }
}

}  // namespace

NetworkFacts ReadNetworkFacts() {
  NetworkFacts facts;
  facts.adapters = tunnel::ListAdapters();
  ReadRoutes(facts);
  return facts;
}

ProxyFacts ReadProxyFacts() {
  ProxyFacts facts;
  WINHTTP_PROXY_INFO own{};
  const bool knowsOwn = ::WinHttpGetDefaultProxyConfiguration(&own) != FALSE;
  if (!knowsOwn) facts.systemError = ::GetLastError();
  if (knowsOwn) {
    facts.systemProxy = Take(own.lpszProxy);
    facts.systemBypass = Take(own.lpszProxyBypass);
  }
  WINHTTP_CURRENT_USER_IE_PROXY_CONFIG user{};
  const bool knowsUsers = ::WinHttpGetIEProxyConfigForCurrentUser(&user) != FALSE;
  if (!knowsUsers) facts.userError = ::GetLastError();
  if (knowsUsers) {
    facts.isAutoDetected = user.fAutoDetect != FALSE;
    // WinHTTP allocates these texts for the caller; Take() frees them.
    facts.script = Take(user.lpszAutoConfigUrl);
    facts.userProxy = Take(user.lpszProxy);
    Take(user.lpszProxyBypass);  // only freed; the whole list is read below
  }
  facts.userBypass = diag::RealProxyOverride().read().value_or(L"");
  return facts;
}

HttpAnswer Fetch(const std::wstring& url) {
  // Below kCheckLimit, so that the reason is reported before the check is abandoned.
  constexpr std::chrono::seconds kReceiveLimit{8};
  constexpr std::size_t kMostBytes = 1 << 16;
  HttpAnswer answer;
  try {
    service::HttpExchange exchange(L"GET", url, kReceiveLimit);
    exchange.Run({});
    answer.status = exchange.Status();
    answer.date = exchange.Date();
    std::string body;
    // Cut at the limit: an answer of that size is not the service's.
    for (std::string chunk = exchange.ReadChunk(); !chunk.empty() && body.size() < kMostBytes;
         chunk = exchange.ReadChunk()) {
      body += chunk;
    }
    answer.body = text::FromUtf8(body);
  } catch (const std::exception& error) {
    // Nothing of a reply that broke off may be judged.
    answer = {};
    answer.failure = text::FromUtf8(error.what());
  }
  return answer;
}

std::wstring TimeZoneLine() {
  TIME_ZONE_INFORMATION zone{};
  const DWORD kind = ::GetTimeZoneInformation(&zone);
  if (kind == TIME_ZONE_ID_INVALID) return L"时区：系统没有说";
  const bool isSummer = kind == TIME_ZONE_ID_DAYLIGHT;
  // Windows counts minutes from local time to UTC, so west is positive.
  const LONG minutes = -(zone.Bias + (isSummer ? zone.DaylightBias : zone.StandardBias));
  std::array<wchar_t, 32> offset{};
  std::swprintf(offset.data(), offset.size(), L"UTC%c%02ld:%02ld", minutes < 0 ? L'-' : L'+',
                std::labs(minutes) / 60, std::labs(minutes) % 60);
  return L"时区：" + std::wstring(offset.data()) + L" " +
         (isSummer ? zone.DaylightName : zone.StandardName);
}

}  // namespace checks
