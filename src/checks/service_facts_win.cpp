#include <array>
#include <cwchar>
#include <exception>

#include "checks/service_checks.h"
#include "service/http_exchange_win.h"
#include "text/utf8.h"

namespace checks {

HttpAnswer Fetch(const std::wstring& url) {
  constexpr std::chrono::seconds kReceiveLimit{8};
  constexpr std::size_t kMostBytes = 1 << 16;
  HttpAnswer answer;
  try {
    service::HttpExchange exchange(L"GET", url, kReceiveLimit);
    exchange.Run({});
    answer.status = exchange.Status();
    answer.date = exchange.Date();
    std::string body;
    for (std::string chunk = exchange.ReadChunk(); !chunk.empty() && body.size() < kMostBytes;
         chunk = exchange.ReadChunk()) {
      body += chunk;
    }
    answer.body = text::FromUtf8(body);
  } catch (const std::exception& error) {
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
  const LONG minutes = -(zone.Bias + (isSummer ? zone.DaylightBias : zone.StandardBias));
  std::array<wchar_t, 32> offset{};
  std::swprintf(offset.data(), offset.size(), L"UTC%c%02ld:%02ld", minutes < 0 ? L'-' : L'+',
                std::labs(minutes) / 60, std::labs(minutes) % 60);
  return L"时区：" + std::wstring(offset.data()) + L" " +
         (isSummer ? zone.DaylightName : zone.StandardName);
}

}  // namespace checks
