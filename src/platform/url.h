#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace platform {

// An absolute http or https address, taken apart. Path is path plus query, "/" when empty.
struct UrlParts {
  std::wstring host;
  std::wstring path;
  std::uint16_t port = 80;
  bool secure = false;
};

// Splits `url` as WinHttpCrackUrl does (the native build has a small splitter that the same tests
// hold to the same results). False when it is no absolute http(s) address; on Windows
// GetLastError() then tells why. Any thread.
bool CrackUrl(std::wstring_view url, UrlParts& parts);

}  // namespace platform
