#include <stdexcept>

#include "settings/json.h"
#include "settings/json_number.h"
#include "text/strings.h"

namespace settings {
namespace {

// Reads values by recursive descent; the caller's cursor is the only state beside the depth.
class Reader {
 public:
  Reader(std::wstring_view text, std::size_t& position) : text_(text), position_(position) {}

  JsonValue ReadValue();

 private:
  [[nodiscard]] bool AtEnd() const { return position_ >= text_.size(); }
  void SkipSpace();
  bool TakeWord(std::wstring_view word);
  // Takes `unit` when it comes next, after white space.
  bool Take(wchar_t unit);
  void Expect(wchar_t unit);
  wchar_t TakeStringUnit();
  void ReadEscape(std::wstring& string);
  std::wstring ReadString();
  double ReadNumber();
  JsonValue ReadObject();
  JsonValue ReadArray();

  std::wstring_view text_;
  std::size_t& position_;
  int depth_ = 0;
};

[[noreturn]] void Fail() {
  throw std::runtime_error("Invalid JSON.");
}

void Reader::SkipSpace() {
  while (!AtEnd() && text::IsSpace(text_[position_])) ++position_;
}

bool Reader::TakeWord(std::wstring_view word) {
  if (!text_.substr(position_).starts_with(word)) return false;
  position_ += word.size();
  return true;
}

bool Reader::Take(wchar_t unit) {
  SkipSpace();
  if (AtEnd() || text_[position_] != unit) return false;
  ++position_;
  return true;
}

void Reader::Expect(wchar_t unit) {
  if (!Take(unit)) Fail();
}

wchar_t Reader::TakeStringUnit() {
  if (AtEnd()) throw std::runtime_error("Invalid JSON string.");
  return text_[position_++];
}

void Reader::ReadEscape(std::wstring& string) {
  const wchar_t escaped = TakeStringUnit();
  switch (escaped) {
    case L'b':
      string.push_back(L'\b');
      break;
    case L'f':
      string.push_back(L'\f');
      break;
    case L'n':
      string.push_back(L'\n');
      break;
    case L'r':
      string.push_back(L'\r');
      break;
    case L't':
      string.push_back(L'\t');
      break;
    case L'u':
      // Too short an escape yields nothing; what is left of it reads on as plain text.
      if (text_.size() - position_ < 4) break;
      string.push_back(ParseHexUnit(text_.substr(position_, 4)));
      position_ += 4;
      break;
    default:
      string.push_back(escaped);
  }
}

std::wstring Reader::ReadString() {
  Expect(L'"');
  std::wstring string;
  for (;;) {
    const wchar_t unit = TakeStringUnit();
    if (unit == L'"') return string;
    if (unit == L'\\') {
      ReadEscape(string);
    } else {
      string.push_back(unit);
    }
  }
}

double Reader::ReadNumber() {
  const std::size_t first = position_;
  while (!AtEnd() &&
         std::wstring_view(L"0123456789+-.Ee").find(text_[position_]) != std::wstring_view::npos) {
    ++position_;
  }
  return ParseJsonNumber(text_.substr(first, position_ - first));
}

JsonValue Reader::ReadObject() {
  Expect(L'{');
  JsonObject object;
  if (Take(L'}')) return JsonValue(std::move(object));
  for (;;) {
    std::wstring key = ReadString();
    Expect(L':');
    object.insert_or_assign(std::move(key), ReadValue());
    if (Take(L'}')) return JsonValue(std::move(object));
    Expect(L',');
  }
}

JsonValue Reader::ReadArray() {
  Expect(L'[');
  JsonArray array;
  if (Take(L']')) return JsonValue(std::move(array));
  for (;;) {
    array.push_back(ReadValue());
    if (Take(L']')) return JsonValue(std::move(array));
    Expect(L',');
  }
}

JsonValue Reader::ReadValue() {
  SkipSpace();
  if (TakeWord(L"null")) return JsonValue();
  if (TakeWord(L"true")) return JsonValue(true);
  if (TakeWord(L"false")) return JsonValue(false);
  const wchar_t next = AtEnd() ? L'\0' : text_[position_];
  if (next == L'"') return JsonValue(ReadString());
  if (next != L'{' && next != L'[') return JsonValue(ReadNumber());
  if (depth_ == kMaxJsonDepth) Fail();
  ++depth_;  // a failure ends the reader, so only success needs to count back
  JsonValue value = next == L'{' ? ReadObject() : ReadArray();
  --depth_;
  return value;
}

}  // namespace

JsonValue ReadJsonValue(std::wstring_view text, std::size_t& position) {
  return Reader(text, position).ReadValue();
}

JsonValue ReadJsonDocument(std::wstring_view text) {
  std::size_t position = 0;
  return ReadJsonValue(text, position);
}

}  // namespace settings
