#include "wire.h"

#include "text.h"

namespace browser {

BodyWriter& BodyWriter::U8(uint8_t value) {
  bytes_.push_back(static_cast<char>(value));
  return *this;
}

BodyWriter& BodyWriter::U32(uint32_t value) {
  for (int shift = 0; shift < 32; shift += 8) U8(static_cast<uint8_t>(value >> shift));
  return *this;
}

BodyWriter& BodyWriter::U64(uint64_t value) {
  return U32(static_cast<uint32_t>(value)).U32(static_cast<uint32_t>(value >> 32));
}

BodyWriter& BodyWriter::Text(std::wstring_view text) {
  bytes_ += ToUtf8(text);
  return *this;
}

uint8_t BodyReader::U8() {
  const std::string_view byte = Bytes(1);
  return byte.empty() ? uint8_t{0} : static_cast<uint8_t>(byte[0]);
}

uint32_t BodyReader::U32() {
  uint32_t value = 0;
  for (int shift = 0; shift < 32; shift += 8) value |= static_cast<uint32_t>(U8()) << shift;
  return value;
}

uint64_t BodyReader::U64() {
  const uint64_t low = U32();
  return low | static_cast<uint64_t>(U32()) << 32;
}

std::string_view BodyReader::Bytes(size_t size) {
  if (size > bytes_.size()) {
    ok_ = false;
    return {};
  }
  const std::string_view taken = bytes_.substr(0, size);
  bytes_.remove_prefix(size);
  return taken;
}

}  // namespace browser
