#pragma once

#include <compare>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

// The text of a filter: its tokens, its numbers and its IP addresses. Pure.
namespace driver {

inline constexpr std::size_t kMaxTokens = 1278;  // including the end
inline constexpr std::size_t kMaxTokenBytes = 39;

struct FilterError {
  const char* message = "";  // static text
  std::size_t position = 0;  // in the filter's text, in bytes
};

enum class Comparison { Equal, NotEqual, Less, LessOrEqual, Greater, GreaterOrEqual };

enum class TokenKind {
  Word,
  Open,
  Close,
  OpenIndex,
  CloseIndex,
  Question,
  Colon,
  Not,
  And,
  Or,
  Compare,
  End
};

struct Token {
  TokenKind kind = TokenKind::End;
  std::string_view text;
  std::size_t position = 0;
  Comparison comparison = Comparison::Equal;  // of a Compare token
};

// Cuts a filter's text into tokens; the last one is End. Empty, with the reason in `error`, for an
// unknown character, a word over kMaxTokenBytes or more than kMaxTokens.
std::optional<std::vector<Token>> CutTokens(std::string_view text, FilterError& error);

// Unsigned, 128 bits: the width in which a filter compares.
struct WideNumber {
  std::uint64_t high = 0;
  std::uint64_t low = 0;
  friend auto operator<=>(const WideNumber&, const WideNumber&) = default;
};

// An IPv4 address as an IPv6 one, ::ffff:a.b.c.d (RFC 4291, section 2.5.5.2), so that it never
// equals a plain 32-bit number.
inline constexpr std::uint64_t kIpv4Prefix = std::uint64_t{0xFFFF} << 32U;
constexpr WideNumber WideIpv4(std::uint32_t address) noexcept {
  return {0, kIpv4Prefix | address};
}

// A decimal or 0x hexadecimal number of up to 128 bits.
std::optional<WideNumber> ParsePlainNumber(std::string_view text) noexcept;
// Dotted decimal, four parts; host order.
std::optional<std::uint32_t> ParseIpv4(std::string_view text) noexcept;
// Groups of up to four hexadecimal digits, "::" at most once; the last two groups may be dotted.
std::optional<WideNumber> ParseIpv6(std::string_view text) noexcept;
std::string FormatIpv4(std::uint32_t address);

}  // namespace driver
