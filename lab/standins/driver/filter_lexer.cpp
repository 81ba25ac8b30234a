#include "driver/filter_lexer.h"

#include <array>

namespace driver {
namespace {

struct Sign {
  std::string_view text;
  TokenKind kind;
  Filter::Compare compare = Filter::Compare::Equal;
};

// Longer signs stand before their beginnings.
constexpr std::array kSigns = {
    Sign{"==", TokenKind::Compare, Filter::Compare::Equal},
    Sign{"!=", TokenKind::Compare, Filter::Compare::NotEqual},
    Sign{"<=", TokenKind::Compare, Filter::Compare::LessOrEqual},
    Sign{">=", TokenKind::Compare, Filter::Compare::GreaterOrEqual},
    Sign{"<", TokenKind::Compare, Filter::Compare::Less},
    Sign{">", TokenKind::Compare, Filter::Compare::Greater},
    Sign{"=", TokenKind::Compare, Filter::Compare::Equal},
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

// How far the word at the start of `rest` goes. A number's may hold colons, as those of an address.
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

// The token at the start of `rest`; its text is empty for a foreign character.
Token CutOne(std::string_view rest) noexcept {
  Token token;
  for (const Sign& sign : kSigns) {
    if (!rest.starts_with(sign.text) || rest.starts_with("::")) continue;
    token.kind = sign.kind;
    token.text = sign.text;
    token.compare = sign.compare;
    return token;
  }
  token.text = rest.substr(0, WordLength(rest));
  token.kind = WordKind(token.text);
  return token;
}

}  // namespace

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
