#include "service/http_reply.h"

#include <limits>

#include "text/strings.h"
#include "text/utf8.h"

namespace service {

std::string HttpFailureText(std::string_view function, std::wstring_view systemText) {
  std::string message(function);
  if (systemText.empty()) return message.append(" failed.");
  return message.append(": ").append(text::ToUtf8(systemText));
}

std::optional<std::uint64_t> ParseContentLength(std::wstring_view value) {
  constexpr std::uint64_t kMax = std::numeric_limits<std::uint64_t>::max();
  const std::wstring digits = text::Trim(value);
  if (digits.empty()) return std::nullopt;

  std::uint64_t lengthBytes = 0;
  for (const wchar_t unit : digits) {
    if (unit < L'0' || unit > L'9') return std::nullopt;
    const auto digit = static_cast<std::uint64_t>(unit - L'0');
    if (lengthBytes > (kMax - digit) / 10) return std::nullopt;
    lengthBytes = lengthBytes * 10 + digit;
  }
  return lengthBytes;
}

bool IsHttpSuccess(std::uint32_t status) noexcept {
  return status >= 200 && status <= 299;
}

}  // namespace service
