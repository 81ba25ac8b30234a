#include "settings/json.h"

namespace settings {

const JsonValue* FindJsonMember(const JsonValue& value, std::wstring_view key) {
  const JsonObject* object = value.AsObject();
  if (object == nullptr) return nullptr;
  const auto found = object->find(key);
  return found == object->end() ? nullptr : &found->second;
}

const std::wstring* FindJsonString(const JsonValue& value, std::wstring_view key) {
  const JsonValue* member = FindJsonMember(value, key);
  return member == nullptr ? nullptr : member->AsString();
}

void TakeJsonString(const JsonValue& value, std::wstring_view key, std::wstring& field) {
  if (const std::wstring* string = FindJsonString(value, key)) field = *string;
}

std::wstring JsonStringOrEmpty(const JsonValue& value, std::wstring_view key) {
  const std::wstring* string = FindJsonString(value, key);
  return string == nullptr ? std::wstring() : *string;
}

std::vector<std::wstring> JsonStringsOf(const JsonValue& value, std::wstring_view key) {
  std::vector<std::wstring> strings;
  const JsonValue* member = FindJsonMember(value, key);
  const JsonArray* items = member == nullptr ? nullptr : member->AsArray();
  if (items == nullptr) return strings;
  for (const JsonValue& item : *items) {
    if (item.AsString() != nullptr) strings.push_back(*item.AsString());
  }
  return strings;
}

std::wstring EscapeJsonString(std::wstring_view value) {
  std::wstring escaped;
  escaped.reserve(value.size());
  // Other control characters stay as they are, though RFC 8259, section 7, escapes them; our reader
  // takes every unit of a string.
  for (const wchar_t unit : value) {
    switch (unit) {
      case L'\t':
        escaped += L"\\t";
        break;
      case L'\n':
        escaped += L"\\n";
        break;
      case L'\r':
        escaped += L"\\r";
        break;
      case L'"':
        escaped += L"\\\"";
        break;
      case L'\\':
        escaped += L"\\\\";
        break;
      default:
        escaped.push_back(unit);
    }
  }
  return escaped;
}

std::wstring QuoteJsonString(std::wstring_view value) {
  return L"\"" + EscapeJsonString(value) + L"\"";
}

std::wstring WriteJsonStrings(const std::vector<std::wstring>& values) {
  std::wstring array = L"[";
  for (const std::wstring& value : values) {
    if (array.size() > 1) array += L',';
    array += QuoteJsonString(value);
  }
  return array + L"]";
}

}  // namespace settings
