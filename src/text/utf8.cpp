#include "text/utf8.h"

#include <cstddef>
#include <cstdint>

namespace text {
namespace {

constexpr std::uint32_t kReplacement = 0xFFFD;

// The sequence that a lead byte starts: its length and the range of its second byte. The narrower
// ranges exclude overlong forms, surrogates and code points past U+10FFFF (RFC 3629, section 4).
// Every later byte may be any of 80..BF.
struct LeadByte {
  std::uint32_t bits = 0;  // the lead byte's own part of the code point
  int following = 0;       // bytes after the lead byte; 0: not a lead byte
  std::uint8_t lowest = 0x80;
  std::uint8_t highest = 0xBF;
};

LeadByte ClassifyLead(std::uint8_t byte) {
  if (byte >= 0xC2 && byte <= 0xDF) return {byte & 0x1Fu, 1};
  if (byte == 0xE0) return {0, 2, 0xA0, 0xBF};
  if (byte == 0xED) return {0xD, 2, 0x80, 0x9F};
  if (byte >= 0xE1 && byte <= 0xEF) return {byte & 0xFu, 2};
  if (byte == 0xF0) return {0, 3, 0x90, 0xBF};
  if (byte >= 0xF1 && byte <= 0xF3) return {byte & 7u, 3};
  if (byte == 0xF4) return {4, 3, 0x80, 0x8F};
  return {};
}

// Decodes the sequence at `position` and moves past it, or past the longest beginning of a valid
// one, so that each maximal invalid sequence becomes one replacement character.
std::uint32_t DecodeOne(std::string_view bytes, std::size_t& position) {
  const auto first = static_cast<std::uint8_t>(bytes[position++]);
  if (first < 0x80) return first;
  const LeadByte lead = ClassifyLead(first);
  if (lead.following == 0) return kReplacement;
  std::uint32_t codePoint = lead.bits;
  std::uint8_t lowest = lead.lowest;
  std::uint8_t highest = lead.highest;
  for (int i = 0; i < lead.following; ++i) {
    if (position == bytes.size()) return kReplacement;
    const auto next = static_cast<std::uint8_t>(bytes[position]);
    // Not consumed: the byte may start a character of its own.
    if (next < lowest || next > highest) return kReplacement;
    codePoint = codePoint << 6 | (next & 0x3Fu);
    ++position;
    lowest = 0x80;
    highest = 0xBF;
  }
  return codePoint;
}

void AppendUnits(std::uint32_t codePoint, std::wstring& out) {
  if (codePoint < 0x10000) {
    out.push_back(static_cast<wchar_t>(codePoint));
    return;
  }
  // A surrogate pair (RFC 2781, section 2.1).
  const std::uint32_t offset = codePoint - 0x10000;
  out.push_back(static_cast<wchar_t>(0xD800 | offset >> 10));
  out.push_back(static_cast<wchar_t>(0xDC00 | (offset & 0x3FF)));
}

std::uint32_t UnitAt(std::wstring_view units, std::size_t index) {
  // wchar_t has 32 bits natively and may be signed; an element is one unit all the same.
  return static_cast<std::uint32_t>(units[index]) & 0xFFFF;
}

// Returns the code point at `position`, U+FFFD for a lone surrogate, and moves past it.
std::uint32_t TakeCodePoint(std::wstring_view units, std::size_t& position) {
  const std::uint32_t unit = UnitAt(units, position++);
  if (unit < 0xD800 || unit > 0xDFFF) return unit;
  if (unit > 0xDBFF || position == units.size()) return kReplacement;
  const std::uint32_t low = UnitAt(units, position);
  if (low < 0xDC00 || low > 0xDFFF) return kReplacement;
  ++position;
  return 0x10000 + ((unit & 0x3FF) << 10) + (low & 0x3FF);
}

void AppendBytes(std::uint32_t codePoint, std::string& out) {
  // Six bits for each byte after the first (RFC 3629, section 3).
  const auto trailing = [codePoint](int shift) {
    return static_cast<char>(0x80 | (codePoint >> shift & 0x3F));
  };
  if (codePoint < 0x80) {
    out.push_back(static_cast<char>(codePoint));
  } else if (codePoint < 0x800) {
    out.push_back(static_cast<char>(0xC0 | codePoint >> 6));
    out.push_back(trailing(0));
  } else if (codePoint < 0x10000) {
    out.push_back(static_cast<char>(0xE0 | codePoint >> 12));
    out.push_back(trailing(6));
    out.push_back(trailing(0));
  } else {
    out.push_back(static_cast<char>(0xF0 | codePoint >> 18));
    out.push_back(trailing(12));
    out.push_back(trailing(6));
    out.push_back(trailing(0));
  }
}

// `high`: the index of the more significant byte in each pair.
std::wstring FromUtf16Bytes(std::string_view bytes, std::size_t high) {
  const auto byteAt = [bytes](std::size_t index) {
    return static_cast<std::uint32_t>(static_cast<unsigned char>(bytes[index]));
  };
  std::wstring units;
  units.reserve(bytes.size() / 2);
  for (std::size_t pair = 0; pair + 1 < bytes.size(); pair += 2) {
    units.push_back(static_cast<wchar_t>(byteAt(pair + high) << 8 | byteAt(pair + 1 - high)));
  }
  if (bytes.size() % 2 != 0) units.push_back(static_cast<wchar_t>(kReplacement));
  return units;
}

}  // namespace

std::wstring FromUtf8(std::string_view bytes) {
  std::wstring units;
  units.reserve(bytes.size());
  for (std::size_t position = 0; position < bytes.size();) {
    AppendUnits(DecodeOne(bytes, position), units);
  }
  return units;
}

std::wstring FromMarkedBytes(std::string_view bytes) {
  constexpr std::string_view kUtf8Mark = "\xEF\xBB\xBF";
  constexpr std::string_view kLittleEndianMark = "\xFF\xFE";
  constexpr std::string_view kBigEndianMark = "\xFE\xFF";
  if (bytes.starts_with(kUtf8Mark)) return FromUtf8(bytes.substr(kUtf8Mark.size()));
  if (bytes.starts_with(kLittleEndianMark)) return FromUtf16Bytes(bytes.substr(2), 1);
  if (bytes.starts_with(kBigEndianMark)) return FromUtf16Bytes(bytes.substr(2), 0);
  return FromUtf8(bytes);
}

std::string ToUtf8(std::wstring_view units) {
  std::string bytes;
  bytes.reserve(units.size());
  for (std::size_t position = 0; position < units.size();) {
    AppendBytes(TakeCodePoint(units, position), bytes);
  }
  return bytes;
}

}  // namespace text
