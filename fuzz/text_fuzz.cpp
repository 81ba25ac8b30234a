// The text functions with any bytes: UTF-8 both ways, dotted addresses, splitting, trimming and
// case folding, each compared with the system or a simple second implementation.

#include <arpa/inet.h>

#include <array>
#include <optional>
#include <vector>

#include "fuzz_input.h"
#include "service/http_call.h"
#include "text/ipv4_text.h"
#include "text/strings.h"

namespace text {
namespace {

using fuzz::Require;

constexpr wchar_t kReplacement = 0xFFFD;

bool IsIn(unsigned value, unsigned first, unsigned last) {
  return value >= first && value <= last;
}

// The number of well-formed bytes at `at`, by the table in RFC 3629, section 4. `whole` is the
// length of the character, 0 for a byte that cannot begin one.
std::size_t WellFormed(std::string_view bytes, std::size_t at, std::size_t& whole) {
  const auto byte = [&](std::size_t index) -> unsigned {
    return index < bytes.size() ? static_cast<unsigned char>(bytes[index]) : 0;
  };
  const unsigned first = byte(at);
  whole = first < 0x80 ? 1 : IsIn(first, 0xC2, 0xDF) ? 2 : IsIn(first, 0xE0, 0xEF) ? 3 : 0;
  if (IsIn(first, 0xF0, 0xF4)) whole = 4;
  if (whole < 2) return whole;
  const unsigned low = first == 0xE0 ? 0xA0 : first == 0xF0 ? 0x90 : 0x80;
  const unsigned high = first == 0xED ? 0x9F : first == 0xF4 ? 0x8F : 0xBF;
  if (!IsIn(byte(at + 1), low, high)) return 1;
  std::size_t count = 2;
  while (count < whole && IsIn(byte(at + count), 0x80, 0xBF)) ++count;
  return count;
}

std::wstring PlainDecode(std::string_view bytes) {
  std::wstring units;
  for (std::size_t at = 0; at < bytes.size();) {
    std::size_t whole = 0;
    const std::size_t count = WellFormed(bytes, at, whole);
    if (whole == 0 || count < whole) {
      units += kReplacement;
      at += std::max<std::size_t>(count, 1);
      continue;
    }
    constexpr std::array<unsigned, 5> kFirstBits = {0, 0x7F, 0x1F, 0x0F, 0x07};
    std::uint32_t code = static_cast<unsigned char>(bytes[at]) & kFirstBits[whole];
    for (std::size_t i = 1; i < whole; ++i) {
      code = code << 6 | (static_cast<unsigned char>(bytes[at + i]) & 0x3FU);
    }
    if (code > 0xFFFF) {
      units += static_cast<wchar_t>(0xD7C0 + (code >> 10));
      code = 0xDC00 + (code & 0x3FF);
    }
    units += static_cast<wchar_t>(code);
    at += whole;
  }
  return units;
}

void CheckUtf8(const std::string& bytes) {
  const std::wstring units = FromUtf8(bytes);
  Require(units == PlainDecode(bytes));
  Require(FromUtf8(ToUtf8(units)) == units);
  if (units.find(kReplacement) == std::wstring::npos) Require(ToUtf8(units) == bytes);
  FromMarkedBytes(bytes);
}

// Any units, including lone surrogates.
void CheckUnits(const std::string& bytes) {
  const std::wstring units = FromMarkedBytes("\xFF\xFE" + bytes);
  Require(units.size() == (bytes.size() + 1) / 2);
  const std::wstring again = FromUtf8(ToUtf8(units));
  Require(again.size() == units.size() && FromUtf8(ToUtf8(again)) == again);
  Require(EqualsIgnoreCase(units, FoldCase(units)) && FoldCase(FoldCase(units)) == FoldCase(units));
}

// Skips texts with zeros, which would end the system function's input.
void CheckAddress(const std::string& bytes) {
  if (bytes.find('\0') != std::string::npos) return;
  in_addr system{};
  const auto address = ParseIpv4(FromUtf8(bytes));
  Require(address.has_value() == (::inet_pton(AF_INET, bytes.c_str(), &system) == 1));
  if (!address) return;
  Require(*address == ntohl(system.s_addr) && ToUtf8(FormatIpv4(*address)) == bytes);
}

void CheckLines(const std::wstring& value) {
  const std::wstring trimmed = Trim(value);
  Require(value.find(trimmed) != std::wstring::npos && Trim(trimmed) == trimmed);
  Require(trimmed.empty() || (!IsSpace(trimmed.front()) && !IsSpace(trimmed.back())));
  const std::vector<std::wstring> lines = SplitLines(value);
  for (const std::wstring& line : lines) {
    Require(!line.empty() && line.find_first_of(L"\r\n") == std::wstring::npos);
  }
  Require(SplitLines(Join(lines, kLineBreak)) == lines);
  std::wstring left = value;
  std::erase_if(left, [](wchar_t unit) { return unit == L'\r' || unit == L'\n'; });
  Require(Join(lines, L"") == left);
}

void CheckLength(const std::wstring& value) {
  const auto length = service::ParseContentLength(value);
  if (length) {
    const std::wstring digits = Trim(value);
    const std::size_t first = std::min(digits.find_first_not_of(L'0'), digits.size() - 1);
    Require(std::to_wstring(*length) == digits.substr(first));
  }
}

void Run(const std::string& bytes) {
  CheckUtf8(bytes);
  CheckUnits(bytes);
  CheckAddress(bytes);
  CheckLines(FromUtf8(bytes));
  CheckLength(FromUtf8(bytes));
}

}  // namespace
}  // namespace text

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t sizeBytes) {
  text::Run(fuzz::Input(data, sizeBytes).Rest());
  return 0;
}
