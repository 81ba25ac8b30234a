#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

// What the transport decides by itself, apart from the calls to the system. Pure; any thread.
namespace service {

// The UTF-8 message of a failed call: the function's name, ": " and the system's text, kept as the
// system gives it (line break included); "<function> failed." when the system has no text.
std::string HttpFailureText(std::string_view function, std::wstring_view systemText);

// The value of a Content-Length header in bytes: decimal digits, blanks around them allowed
// (RFC 9110, section 8.6). Empty for anything else, as for a value beyond 64 bits.
std::optional<std::uint64_t> ParseContentLength(std::wstring_view value);

// 200 to 299.
bool IsHttpSuccess(std::uint32_t status) noexcept;

}  // namespace service
