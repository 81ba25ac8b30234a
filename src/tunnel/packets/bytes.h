#pragma once

#include <cassert>
#include <cstddef>
#include <cstdint>
#include <span>

// Reads and writes numbers in wire order (most significant byte first) byte by byte, so that
// neither alignment nor the computer's byte order matters. Callers must check that the number lies
// inside `bytes`; the asserts only catch programming errors.
namespace tunnel {

inline std::uint8_t ReadU8(std::span<const std::byte> bytes, std::size_t offset) noexcept {
  assert(offset < bytes.size());
  return std::to_integer<std::uint8_t>(bytes[offset]);
}

inline std::uint16_t ReadU16Be(std::span<const std::byte> bytes, std::size_t offset) noexcept {
  const unsigned high = ReadU8(bytes, offset);
  const unsigned low = ReadU8(bytes, offset + 1);
  return static_cast<std::uint16_t>(high << 8 | low);
}

inline std::uint32_t ReadU32Be(std::span<const std::byte> bytes, std::size_t offset) noexcept {
  const std::uint32_t high = ReadU16Be(bytes, offset);
  return high << 16 | ReadU16Be(bytes, offset + 2);
}

inline std::uint64_t ReadU64Be(std::span<const std::byte> bytes, std::size_t offset) noexcept {
  const std::uint64_t high = ReadU32Be(bytes, offset);
  return high << 32 | ReadU32Be(bytes, offset + 4);
}

inline void WriteU8(std::span<std::byte> bytes, std::size_t offset, std::uint8_t value) noexcept {
  assert(offset < bytes.size());
  bytes[offset] = std::byte{value};
}

inline void WriteU16Be(std::span<std::byte> bytes, std::size_t offset,
                       std::uint16_t value) noexcept {
  WriteU8(bytes, offset, static_cast<std::uint8_t>(value >> 8));
  WriteU8(bytes, offset + 1, static_cast<std::uint8_t>(value & 0xFF));
}

inline void WriteU32Be(std::span<std::byte> bytes, std::size_t offset,
                       std::uint32_t value) noexcept {
  WriteU16Be(bytes, offset, static_cast<std::uint16_t>(value >> 16));
  WriteU16Be(bytes, offset + 2, static_cast<std::uint16_t>(value & 0xFFFF));
}

inline void WriteU64Be(std::span<std::byte> bytes, std::size_t offset,
                       std::uint64_t value) noexcept {
  WriteU32Be(bytes, offset, static_cast<std::uint32_t>(value >> 32));
  WriteU32Be(bytes, offset + 4, static_cast<std::uint32_t>(value & 0xFFFFFFFF));
}

}  // namespace tunnel
