#pragma once

#include <cstddef>
#include <map>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

// The program's JSON reader and string writer. The reader is lenient on purpose (see
// ReadJsonValue). Pure; any thread.
namespace settings {

class JsonValue;
// Members in ascending order of their keys, compared by code unit; the last duplicate wins.
using JsonObject = std::map<std::wstring, JsonValue, std::less<>>;
using JsonArray = std::vector<JsonValue>;

// null, boolean, number, string, object or array; null by default. Owns everything below it.
class JsonValue {
 public:
  using Payload = std::variant<std::monostate, bool, double, std::wstring, JsonObject, JsonArray>;

  JsonValue() = default;
  explicit JsonValue(Payload payload) : payload_(std::move(payload)) {}

  [[nodiscard]] bool IsNull() const { return std::holds_alternative<std::monostate>(payload_); }
  // nullptr when the value is of another kind.
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

// Deeper nesting is "Invalid JSON."; it would overflow the stack.
inline constexpr int kMaxJsonDepth = 1000;

// Reads one value from `text` at `position` (in code units) and moves `position` past it, ignoring
// what follows. Throws std::runtime_error ("Invalid JSON.", "Invalid JSON string."). An unexpected
// character in place of a value reads as the number 0.
JsonValue ReadJsonValue(std::wstring_view text, std::size_t& position);

// Reads the first value of a document and ignores the rest. Throws like ReadJsonValue().
JsonValue ReadJsonDocument(std::wstring_view text);

// The member `key` (case-sensitive) of an object; nullptr without it. Valid as long as `value`.
const JsonValue* FindJsonMember(const JsonValue& value, std::wstring_view key);

// The same for a string member's text.
const std::wstring* FindJsonString(const JsonValue& value, std::wstring_view key);

// A copy of that text; empty without it.
std::wstring JsonStringOrEmpty(const JsonValue& value, std::wstring_view key);

// Copies a string member's text, even an empty one, to `field`.
void TakeJsonString(const JsonValue& value, std::wstring_view key, std::wstring& field);

// The strings of an array member in their order, without elements of other kinds; empty without
// such a member.
std::vector<std::wstring> JsonStringsOf(const JsonValue& value, std::wstring_view key);

// Escapes only tab, line feed, carriage return, quote and backslash.
std::wstring EscapeJsonString(std::wstring_view value);
std::wstring QuoteJsonString(std::wstring_view value);

// Writes an array of strings, without blanks.
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
