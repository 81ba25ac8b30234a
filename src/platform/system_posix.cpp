#include <algorithm>
#include <cstddef>
#include <system_error>

#include "platform/system_error.h"
#include "platform/url.h"
#include "text/strings.h"
#include "text/utf8.h"

// The native build's error texts and URL splitter.

namespace platform {
namespace {

// Removes the scheme and "://" from the front of `rest`.
bool TakeScheme(std::wstring_view& rest, UrlParts& parts) {
  const std::size_t end = rest.find(L"://");
  if (end == std::wstring_view::npos) return false;
  const std::wstring_view scheme = rest.substr(0, end);
  parts.secure = text::EqualsIgnoreCase(scheme, L"https");
  if (!parts.secure && !text::EqualsIgnoreCase(scheme, L"http")) return false;
  parts.port = parts.secure ? 443 : 80;
  rest.remove_prefix(end + 3);
  return true;
}

// An empty port keeps the scheme's default.
bool TakePort(std::wstring_view digits, std::uint16_t& port) {
  if (digits.empty()) return true;
  std::uint32_t value = 0;
  for (const wchar_t digit : digits) {
    if (digit < L'0' || digit > L'9') return false;
    value = value * 10 + static_cast<std::uint32_t>(digit - L'0');
    if (value > 0xFFFF) return false;
  }
  port = static_cast<std::uint16_t>(value);
  return true;
}

}  // namespace

std::wstring ErrorReason(std::uint32_t code) {
  return text::FromUtf8(std::generic_category().message(static_cast<int>(code)));
}

bool CrackUrl(std::wstring_view url, UrlParts& parts) {
  UrlParts found;  // `parts` stays unchanged on failure
  if (!TakeScheme(url, found)) return false;
  // The authority ends at the first of these (RFC 3986, section 3.2).
  const std::size_t authorityEnd = std::min(url.find_first_of(L"/?#"), url.size());
  std::wstring_view authority = url.substr(0, authorityEnd);
  found.path = url.substr(authorityEnd);
  if (found.path.empty()) found.path = L"/";

  // User information is dropped (RFC 3986, section 3.2.1).
  const std::size_t at = authority.rfind(L'@');
  if (at != std::wstring_view::npos) authority.remove_prefix(at + 1);
  // A colon inside brackets belongs to an IPv6 address.
  const std::size_t bracket = authority.find(L']');
  const std::size_t colon = authority.find(L':', bracket == std::wstring_view::npos ? 0 : bracket);
  if (colon != std::wstring_view::npos) {
    if (!TakePort(authority.substr(colon + 1), found.port)) return false;
    authority = authority.substr(0, colon);
  }
  if (authority.empty()) return false;
  found.host = authority;
  parts = std::move(found);
  return true;
}

}  // namespace platform
