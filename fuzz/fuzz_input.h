#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <span>
#include <string>
#include <string_view>

#include "text/utf8.h"

// Shared by the fuzz targets: splitting an input into parts, and aborting when a requirement is
// violated; libFuzzer then saves the input and prints the stack.
namespace fuzz {

inline void Require(bool holds) {
  if (!holds) std::abort();
}

// The bytes of one input, consumed from the front. Past its end everything is zero or empty, so
// that every input is valid.
class Input {
 public:
  Input(const std::uint8_t* data, std::size_t sizeBytes)
      : rest_(std::as_bytes(std::span(data, sizeBytes))) {}

  [[nodiscard]] bool IsEmpty() const { return rest_.empty(); }

  std::uint8_t Byte() {
    const auto byte = Bytes(1);
    return byte.empty() ? std::uint8_t{0} : std::to_integer<std::uint8_t>(byte.front());
  }

  // This many bytes, or all that remain.
  std::span<const std::byte> Bytes(std::size_t count) {
    const auto taken = rest_.first(std::min(count, rest_.size()));
    rest_ = rest_.subspan(taken.size());
    return taken;
  }

  // Up to the next line feed, which is consumed too, so that seeds are readable texts.
  std::string Line() {
    const auto end = std::ranges::find(rest_, std::byte{'\n'});
    const std::string line = Text(Bytes(static_cast<std::size_t>(end - rest_.begin())));
    Bytes(1);
    return line;
  }
  std::wstring WideLine() { return text::FromUtf8(Line()); }

  std::string Rest() { return Text(Bytes(rest_.size())); }

 private:
  static std::string Text(std::span<const std::byte> bytes) {
    std::string text(bytes.size(), '\0');
    std::ranges::transform(bytes, text.begin(),
                           [](std::byte byte) { return std::to_integer<char>(byte); });
    return text;
  }

  std::span<const std::byte> rest_;
};

}  // namespace fuzz
