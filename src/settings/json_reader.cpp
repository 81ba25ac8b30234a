#include <algorithm>
#include <charconv>
#include <cstdint>
#include <limits>
#include <stdexcept>
#include <system_error>

#include "settings/json.h"
#include "text/strings.h"

namespace settings {
namespace {

bool IsDigit(wchar_t unit) {
  return unit >= L'0' && unit <= L'9';
}

std::size_t CountDigits(std::wstring_view text) {
  return static_cast<std::size_t>(std::find_if_not(text.begin(), text.end(), IsDigit) -
                                  text.begin());
}

// The length of the exponent at the front of `run`, including the "e"; 0 without digits.
std::size_t CountExponent(std::wstring_view run) {
  if (run.empty() || (run[0] != L'e' && run[0] != L'E')) return 0;
  const std::size_t sign = run.size() > 1 && (run[1] == L'+' || run[1] == L'-') ? 1 : 0;
  const std::size_t digits = CountDigits(run.substr(1 + sign));
  return digits == 0 ? 0 : 1 + sign + digits;
}

// The longest number at the front of `run`, which has no sign; empty without one.
std::string TakeNumber(std::wstring_view run) {
  std::size_t length = CountDigits(run);
  std::size_t digits = length;
  if (length < run.size() && run[length] == L'.') {
    const std::size_t fraction = CountDigits(run.substr(length + 1));
    digits += fraction;
    length += 1 + fraction;
  }
  // "5." and ".5" are numbers, as for the C library; a lone point is not.
  if (digits == 0) return {};
  length += CountExponent(run.substr(length));
  std::string number;
  for (const wchar_t unit : run.substr(0, length)) number.push_back(static_cast<char>(unit));
  return number;
}

// Whether a number out of double's range is too large rather than too small: from_chars does not
// distinguish the two. Adds the exponent to the position of the first significant digit.
bool IsHuge(const std::string& number) {
  const std::size_t e = std::min(number.find_first_of("eE"), number.size());
  const std::size_t point = std::min(number.find('.'), e);
  const std::size_t first = number.find_first_not_of("0.");
  std::int64_t magnitude = static_cast<std::int64_t>(point) - static_cast<std::int64_t>(first);
  const bool negative = e + 1 < number.size() && number[e + 1] == '-';
  std::int64_t exponent = 0;
  for (std::size_t i = e; i < number.size(); ++i) {
    const char digit = number[i];
    if (digit < '0' || digit > '9') continue;
    // Stops before an overflow; an exponent of that size decides in any case.
    if (exponent < std::numeric_limits<std::int64_t>::max() / 100) {
      exponent = exponent * 10 + (digit - '0');
    }
  }
  magnitude += negative ? -exponent : exponent;
  return magnitude > 0;
}

int HexDigit(wchar_t unit) {
  if (IsDigit(unit)) return unit - L'0';
  if (unit >= L'a' && unit <= L'f') return unit - L'a' + 10;
  if (unit >= L'A' && unit <= L'F') return unit - L'A' + 10;
  return -1;
}

// Recursive descent. Its only state is the caller's cursor and the depth.
class Reader {
 public:
  Reader(std::wstring_view text, std::size_t& position) : text_(text), position_(position) {}

  JsonValue ReadValue();

 private:
  [[nodiscard]] bool AtEnd() const { return position_ >= text_.size(); }
  void SkipSpace();
  bool TakeWord(std::wstring_view word);
  // Skips white space and, if it is next, `unit`.
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
  // Accepts more white space than RFC 8259, section 2.
  while (!AtEnd() && text::IsSpace(text_[position_])) ++position_;
}

bool Reader::TakeWord(std::wstring_view word) {
  // The word need not end here: inside an object or array, any rest fails at the next comma.
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
      // An escape cut short yields nothing, and the rest of it reads as plain text.
      if (text_.size() - position_ < 4) break;
      string.push_back(ParseHexUnit(text_.substr(position_, 4)));
      position_ += 4;
      break;
    default:
      // Quote, backslash and slash; an unknown escape is the unit itself.
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
  // First the whole run of such characters: the cursor passes it even if the number ends earlier.
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
    // The last duplicate wins.
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
  // Anything unknown reads as a number, which makes it 0.
  const wchar_t next = AtEnd() ? L'\0' : text_[position_];
  if (next == L'"') return JsonValue(ReadString());
  if (next != L'{' && next != L'[') return JsonValue(ReadNumber());
  // Each level takes stack; a service's reply must not be able to overflow it.
  if (depth_ == kMaxJsonDepth) Fail();
  ++depth_;  // a failure ends the reader, so only success needs to count back
  JsonValue value = next == L'{' ? ReadObject() : ReadArray();
  --depth_;
  return value;
}

}  // namespace

double ParseJsonNumber(std::wstring_view run) {
  // from_chars takes no plus sign, so both signs are handled here.
  const bool negative = !run.empty() && run[0] == L'-';
  if (negative || (!run.empty() && run[0] == L'+')) run.remove_prefix(1);
  const std::string number = TakeNumber(run);
  if (number.empty()) return 0;
  double value = 0;
  // Not wcstod: it follows the locale, whose decimal point may be a comma.
  const auto result = std::from_chars(number.data(), number.data() + number.size(), value);
  if (result.ec == std::errc::result_out_of_range) {
    value = IsHuge(number) ? std::numeric_limits<double>::infinity() : 0;
  }
  return negative ? -value : value;
}

wchar_t ParseHexUnit(std::wstring_view fourUnits) {
  while (!fourUnits.empty() && text::IsSpace(fourUnits[0])) fourUnits.remove_prefix(1);
  const bool negative = fourUnits.starts_with(L'-');
  if (negative || fourUnits.starts_with(L'+')) fourUnits.remove_prefix(1);
  if (fourUnits.starts_with(L"0x") || fourUnits.starts_with(L"0X")) fourUnits.remove_prefix(2);
  std::uint32_t value = 0;
  for (const wchar_t unit : fourUnits) {
    const int digit = HexDigit(unit);
    if (digit < 0) break;
    value = value << 4 | static_cast<std::uint32_t>(digit);
  }
  // A negative number wraps, as with wcstoul.
  return static_cast<wchar_t>((negative ? 0 - value : value) & 0xFFFF);
}

JsonValue ReadJsonValue(std::wstring_view text, std::size_t& position) {
  return Reader(text, position).ReadValue();
}

JsonValue ReadJsonDocument(std::wstring_view text) {
  std::size_t position = 0;
  return ReadJsonValue(text, position);
}

}  // namespace settings
