#pragma once

#include <cstddef>
#include <map>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

// The one JSON reader and the one string writer of the program. The reader is lenient on purpose
// (see ReadJsonValue); both are pure and may run on any thread.
namespace settings {

class JsonValue;
// Members in ascending order of their keys, compared by code unit; the last duplicate wins.
using JsonObject = std::map<std::wstring, JsonValue, std::less<>>;
using JsonArray = std::vector<JsonValue>;

// null, boolean, number, string, object or array; a fresh value is null. Owns all below it.
class JsonValue {
 public:
  using Payload = std::variant<std::monostate, bool, double, std::wstring, JsonObject, JsonArray>;

  JsonValue() = default;
  explicit JsonValue(Payload payload) : payload_(std::move(payload)) {}

  [[nodiscard]] bool IsNull() const { return std::holds_alternative<std::monostate>(payload_); }
  // The payload when the value is of that kind, else nullptr.
  [[nodiscard]] const bool* AsBoolean() const { return std::get_if<bool>(&payload_); }
  [[nodiscard]] const double* AsNumber() const { return std::get_if<double>(&payload_); }
  [[nodiscard]] const std::wstring* AsString() const {
    return std::get_if<std::wstring>(&payload_);
  }
  [[nodiscard]] const JsonObject* AsObject() const { return std::get_if<JsonObject>(&payload_); }
  [[nodiscard]] const JsonArray* AsArray() const { return std::get_if<JsonArray>(&payload_); }

 private:
  Payload payload_;
};

// Deepest nesting the reader follows; deeper text is "Invalid JSON." rather than a full stack.
inline constexpr int kMaxJsonDepth = 1000;

// Reads one value from `text` at `position` (an index in code units) and moves `position` past it.
// Does not check that the text ends there. Throws std::runtime_error with "Invalid JSON." or
// "Invalid JSON string.". An unexpected character where a value should be reads as the number 0.
JsonValue ReadJsonValue(std::wstring_view text, std::size_t& position);

// The first value of a whole document; text behind it is ignored. Throws as ReadJsonValue.
JsonValue ReadJsonDocument(std::wstring_view text);

// The member `key` (exact, case-sensitive) when `value` is an object that has it, else nullptr.
// Valid as long as `value`.
const JsonValue* FindJsonMember(const JsonValue& value, std::wstring_view key);

// The member's text when it is a string, else nullptr. Valid as long as `value`.
const std::wstring* FindJsonString(const JsonValue& value, std::wstring_view key);

// The same as a copy, else an empty text.
std::wstring JsonStringOrEmpty(const JsonValue& value, std::wstring_view key);

// Puts the member's text into `field` when it is a string, an empty one too.
void TakeJsonString(const JsonValue& value, std::wstring_view key, std::wstring& field);

// The strings of the member when it is an array, in its order, members of other kinds left out;
// else nothing.
std::vector<std::wstring> JsonStringsOf(const JsonValue& value, std::wstring_view key);

// Escapes exactly tab, line feed, carriage return, quote and backslash; all else is copied as is.
std::wstring EscapeJsonString(std::wstring_view value);
std::wstring QuoteJsonString(std::wstring_view value);

// An array of strings, without blanks.
std::wstring WriteJsonStrings(const std::vector<std::wstring>& values);

// ---- parts of the reader, for its tests

// The number spelled by the longest usable beginning of `run`, a sequence of + - . E e and ASCII
// digits: like the C library's wcstod in the C locale, whatever the process's locale. 0 without one
// ("", "-", "--1"); infinity when too large and 0 when too small, both with the sign.
double ParseJsonNumber(std::wstring_view run);

// The unit spelled by the four units after "\u", like the C library's wcstoul in base 16: accepts
// leading white space, a sign and "0x", stops at the first other unit and keeps the low 16 bits.
wchar_t ParseHexUnit(std::wstring_view fourUnits);

}  // namespace settings
