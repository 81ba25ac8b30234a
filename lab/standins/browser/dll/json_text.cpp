#include "json_text.h"

#include <algorithm>
#include <cstddef>

namespace browser {
namespace {

constexpr int kMaxNesting = 1000;

bool IsDigit(wchar_t unit) {
  return unit >= L'0' && unit <= L'9';
}

bool IsHexDigit(wchar_t unit) {
  return IsDigit(unit) || (unit >= L'a' && unit <= L'f') || (unit >= L'A' && unit <= L'F');
}

// Consumes a JSON text from the front; each function returns false if the text is not JSON.
class Checker {
 public:
  explicit Checker(std::wstring_view text) : rest_(text) {}

  bool Text() {
    SkipSpace();
    if (!Value(0)) return false;
    SkipSpace();
    return rest_.empty();
  }

 private:
  bool Value(int depth) {
    if (rest_.empty()) return false;
    const bool opens = rest_.front() == L'{' || rest_.front() == L'[';
    if (opens && depth == kMaxNesting) return false;
    switch (rest_.front()) {
      case L'{':
        return List(L'}', [&] { return Member(depth + 1); });
      case L'[':
        return List(L']', [&] { return Value(depth + 1); });
      case L'"':
        return String();
      default:
        return Word(L"true") || Word(L"false") || Word(L"null") || Number();
    }
  }

  // The items of an object or array, and its brackets.
  template <typename Item>
  bool List(wchar_t end, Item item) {
    rest_.remove_prefix(1);
    SkipSpace();
    if (Take(end)) return true;
    for (;;) {
      if (!item()) return false;
      SkipSpace();
      if (Take(end)) return true;
      if (!Take(L',')) return false;
      SkipSpace();
    }
  }

  bool Member(int depth) {
    if (!String()) return false;
    SkipSpace();
    if (!Take(L':')) return false;
    SkipSpace();
    return Value(depth);
  }

  bool String() {
    if (!Take(L'"')) return false;
    for (;;) {
      if (rest_.empty() || rest_.front() < L' ') return false;
      if (Take(L'"')) return true;
      if (Take(L'\\')) {
        if (!Escape()) return false;
      } else {
        rest_.remove_prefix(1);
      }
    }
  }

  bool Escape() {
    if (Take(L'u')) {
      if (rest_.size() < 4 || !std::ranges::all_of(rest_.substr(0, 4), IsHexDigit)) return false;
      rest_.remove_prefix(4);
      return true;
    }
    return TakeOneOf(L"\"\\/bfnrt");
  }

  bool Number() {
    Take(L'-');
    if (!Take(L'0') && !Digits()) return false;
    if (Take(L'.') && !Digits()) return false;
    if (!TakeOneOf(L"eE")) return true;
    TakeOneOf(L"+-");
    return Digits();
  }

  bool Digits() {
    const auto count =
        static_cast<std::size_t>(std::ranges::find_if_not(rest_, IsDigit) - rest_.begin());
    rest_.remove_prefix(count);
    return count > 0;
  }

  bool Word(std::wstring_view word) {
    if (!rest_.starts_with(word)) return false;
    rest_.remove_prefix(word.size());
    return true;
  }

  bool Take(wchar_t unit) { return Word({&unit, 1}); }

  bool TakeOneOf(std::wstring_view units) {
    if (rest_.empty() || units.find(rest_.front()) == std::wstring_view::npos) return false;
    rest_.remove_prefix(1);
    return true;
  }

  void SkipSpace() {
    while (TakeOneOf(L" \t\r\n")) {
    }
  }

  std::wstring_view rest_;
};

}  // namespace

bool IsJsonText(std::wstring_view text) {
  return Checker(text).Text();
}

}  // namespace browser
