// Parses any bytes as JSON. The result is a value or one of the two errors, and every string in it
// survives writing and reading.

#include <cstdint>
#include <stdexcept>
#include <string>
#include <string_view>

#include "fuzz_input.h"
#include "settings/json.h"
#include "text/utf8.h"

namespace {

using settings::JsonValue;

using fuzz::Require;

void RequireRoundTrip(const std::wstring& string) {
  const JsonValue read = settings::ReadJsonDocument(settings::QuoteJsonString(string));
  Require(read.AsString() != nullptr && *read.AsString() == string);
}

// Recurses as deep as the reader allows.
void CheckStrings(const JsonValue& value) {
  if (value.AsString() != nullptr) RequireRoundTrip(*value.AsString());
  if (value.AsArray() != nullptr) {
    for (const JsonValue& element : *value.AsArray()) CheckStrings(element);
  }
  if (value.AsObject() == nullptr) return;
  for (const auto& [key, member] : *value.AsObject()) {
    RequireRoundTrip(key);
    Require(settings::FindJsonMember(value, key) == &member);
    CheckStrings(member);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::wstring text =
      text::FromUtf8(std::string_view(reinterpret_cast<const char*>(data), size));
  std::size_t position = 0;
  try {
    CheckStrings(settings::ReadJsonValue(text, position));
  } catch (const std::runtime_error& error) {
    const std::string_view message = error.what();
    Require(message == "Invalid JSON." || message == "Invalid JSON string.");
  }
  Require(position <= text.size());
  return 0;
}
