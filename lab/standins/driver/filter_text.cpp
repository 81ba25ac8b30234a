#include "driver/filter_text.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <vector>

namespace driver {
namespace {

constexpr std::size_t kIpv6Groups = 8;
using Groups = std::vector<std::uint16_t>;

std::optional<std::uint32_t> ParseDigits(std::string_view text, int base) noexcept {
  std::uint32_t value = 0;
  const char* end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, value, base);
  if (error != std::errc() || stop != end) return std::nullopt;
  return value;
}

// number * base + digit; false on overflow of 128 bits.
bool Append(WideNumber& number, std::uint64_t base, std::uint64_t digit) noexcept {
  constexpr std::uint64_t kHalf = 0xFFFFFFFF;
  std::uint64_t parts[] = {number.low & kHalf, number.low >> 32U, number.high & kHalf,
                           number.high >> 32U};
  std::uint64_t carry = digit;
  for (std::uint64_t& part : parts) {
    carry += part * base;
    part = carry & kHalf;
    carry >>= 32U;
  }
  number = {parts[3] << 32U | parts[2], parts[1] << 32U | parts[0]};
  return carry == 0;
}

// Removes the text up to the first `mark`, and the mark, from the front of `rest`; returns the
// text.
std::string_view CutAt(std::string_view& rest, char mark) noexcept {
  const std::string_view part = rest.substr(0, rest.find(mark));
  rest.remove_prefix(std::min(part.size() + 1, rest.size()));
  return part;
}

// Adds the groups between colons; false for malformed text. Empty text adds none.
bool AddGroups(std::string_view text, Groups& groups) {
  if (text.ends_with(':')) return false;
  while (!text.empty()) {
    const std::string_view part = CutAt(text, ':');
    if (const auto dotted = ParseIpv4(part); dotted && text.empty()) {
      groups.push_back(static_cast<std::uint16_t>(*dotted >> 16U));
      groups.push_back(static_cast<std::uint16_t>(*dotted & 0xFFFFU));
      return true;
    }
    const auto group = part.size() <= 4 ? ParseDigits(part, 16) : std::nullopt;
    if (!group) return false;
    groups.push_back(static_cast<std::uint16_t>(*group));
  }
  return true;
}

struct Sign {
  std::string_view text;
  TokenKind kind;
  Comparison comparison = Comparison::Equal;
};

// A sign comes before every shorter one that it starts with.
constexpr std::array kSigns = {
    Sign{"==", TokenKind::Compare, Comparison::Equal},
    Sign{"!=", TokenKind::Compare, Comparison::NotEqual},
    Sign{"<=", TokenKind::Compare, Comparison::LessOrEqual},
    Sign{">=", TokenKind::Compare, Comparison::GreaterOrEqual},
    Sign{"<", TokenKind::Compare, Comparison::Less},
    Sign{">", TokenKind::Compare, Comparison::Greater},
    Sign{"=", TokenKind::Compare, Comparison::Equal},
    Sign{"&&", TokenKind::And},
    Sign{"||", TokenKind::Or},
    Sign{"!", TokenKind::Not},
    Sign{"(", TokenKind::Open},
    Sign{")", TokenKind::Close},
    Sign{"[", TokenKind::OpenIndex},
    Sign{"]", TokenKind::CloseIndex},
    Sign{"?", TokenKind::Question},
    Sign{":", TokenKind::Colon},
};

bool IsSpace(char c) noexcept {
  return c == ' ' || c == '\t' || c == '\r' || c == '\n';
}

bool IsDigit(char c) noexcept {
  return c >= '0' && c <= '9';
}

bool IsWordPart(char c) noexcept {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || IsDigit(c) || c == '.' || c == '_';
}

// The length of the word at the start of `rest`. A number may contain colons, as in an address.
std::size_t WordLength(std::string_view rest) noexcept {
  const std::size_t sign = rest.starts_with('-') ? 1 : 0;
  const bool isNumber = rest.starts_with("::") || (rest.size() > sign && IsDigit(rest[sign]));
  if (sign != 0 && !isNumber) return 0;
  std::size_t length = sign;
  while (length < rest.size() && (IsWordPart(rest[length]) || (isNumber && rest[length] == ':'))) {
    ++length;
  }
  return length;
}

TokenKind WordKind(std::string_view word) noexcept {
  if (word == "and") return TokenKind::And;
  if (word == "or") return TokenKind::Or;
  return word == "not" ? TokenKind::Not : TokenKind::Word;
}

// The token at the start of `rest`; its text is empty for an unknown character.
Token CutOne(std::string_view rest) noexcept {
  Token token;
  for (const Sign& sign : kSigns) {
    if (!rest.starts_with(sign.text) || rest.starts_with("::")) continue;
    token.kind = sign.kind;
    token.text = sign.text;
    token.comparison = sign.comparison;
    return token;
  }
  token.text = rest.substr(0, WordLength(rest));
  token.kind = WordKind(token.text);
  return token;
}

}  // namespace

std::optional<WideNumber> ParsePlainNumber(std::string_view text) noexcept {
  const bool isHexadecimal = text.starts_with("0x");
  if (isHexadecimal) text.remove_prefix(2);
  if (text.empty()) return std::nullopt;
  WideNumber number;
  for (const char digit : text) {
    const auto value = ParseDigits({&digit, 1}, isHexadecimal ? 16 : 10);
    if (!value || !Append(number, isHexadecimal ? 16 : 10, *value)) return std::nullopt;
  }
  return number;
}

std::optional<std::uint32_t> ParseIpv4(std::string_view text) noexcept {
  if (std::count(text.begin(), text.end(), '.') != 3) return std::nullopt;
  std::uint32_t address = 0;
  for (int i = 0; i < 4; ++i) {
    const auto octet = ParseDigits(CutAt(text, '.'), 10);
    if (!octet || *octet > 255) return std::nullopt;
    address = address << 8U | *octet;
  }
  return address;
}

std::optional<WideNumber> ParseIpv6(std::string_view text) noexcept {
  Groups head, tail;
  const std::size_t gap = text.find("::");
  if (!AddGroups(text.substr(0, gap), head)) return std::nullopt;
  if (gap == std::string_view::npos) {
    if (head.size() != kIpv6Groups) return std::nullopt;
  } else if (!AddGroups(text.substr(gap + 2), tail) || head.size() + tail.size() >= kIpv6Groups) {
    return std::nullopt;
  }
  head.resize(kIpv6Groups - tail.size());
  head.insert(head.end(), tail.begin(), tail.end());
  WideNumber address;
  for (const std::uint16_t group : head) Append(address, 0x10000, group);
  return address;
}

std::string FormatIpv4(std::uint32_t address) {
  std::string text;
  for (unsigned shift = 32; shift > 0; shift -= 8) {
    if (!text.empty()) text += '.';
    text += std::to_string(address >> (shift - 8) & 0xFFU);
  }
  return text;
}

std::optional<std::vector<Token>> CutTokens(std::string_view text, FilterError& error) {
  std::vector<Token> tokens;
  std::size_t at = 0;
  for (;;) {
    while (at < text.size() && IsSpace(text[at])) ++at;
    Token token;
    if (at < text.size()) {
      token = CutOne(text.substr(at));
      if (token.text.empty()) {
        error = {"Filter expression contains a bad token", at};
        return std::nullopt;
      }
    }
    token.position = at;
    if (token.text.size() > kMaxTokenBytes || tokens.size() == kMaxTokens) {
      error = {"Filter expression is too long", at};
      return std::nullopt;
    }
    tokens.push_back(token);
    if (token.kind == TokenKind::End) return tokens;
    at += token.text.size();
  }
}

}  // namespace driver
