#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace platform {

// The parts of an absolute http or https address. The path includes the query; "/" when empty.
struct UrlParts {
  std::wstring host;
  std::wstring path;
  std::uint16_t port = 80;
  bool secure = false;
};

// Splits `url` like WinHttpCrackUrl; the native build has a splitter of its own under the same
// tests. False for anything but an absolute http(s) address, on Windows with the last error set.
// Any thread.
bool CrackUrl(std::wstring_view url, UrlParts& parts);

}  // namespace platform
