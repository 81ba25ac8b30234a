#pragma once

#include <cstddef>
#include <optional>
#include <string_view>
#include <vector>

#include "driver/filter.h"

namespace driver {

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
  Filter::Compare compare = Filter::Compare::Equal;  // of a Compare
};

// Cuts a filter's text into tokens, the last of which is End. Nothing, with the reason in `error`,
// for a foreign character, a word over kMaxTokenBytes or more than kMaxTokens.
std::optional<std::vector<Token>> CutTokens(std::string_view text, FilterError& error);

}  // namespace driver
