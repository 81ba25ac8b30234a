#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "driver/filter_text.h"
#include "driver/packet.h"

// The published driver's filter language for IPv4 at the network layer.
//
//   filter  := conj { ("or" | "||") conj }           conj := arg { ("and" | "&&") arg }
//   arg     := "(" filter [ "?" filter ":" filter ] ")" | { "not" | "!" } test
//   test    := field [ ("=" | "==" | "!=" | "<" | "<=" | ">" | ">=") number ]
//   field   := name [ "[" ["-"] digits ["b"] "]" ]
//
// Names and words are case-sensitive. A group cannot be negated. Numbers are decimal, 0x
// hexadecimal, addresses, or TCP, UDP, ICMP, ICMPV6, TRUE, FALSE, PACKET; they are compared as
// unsigned 128-bit values. A ":" directly after a number belongs to it.
//
// A comparison on a header that the packet lacks fails, negated or not. If the number alone decides
// the outcome, as in "tcp.UrgPtr == 70000", the test becomes one for the header: here "not tcp",
// true for every packet without TCP.
namespace driver {

inline constexpr std::size_t kMaxTests = 256;        // that compile
inline constexpr std::size_t kMaxDriverTests = 255;  // that Open accepts
inline constexpr std::size_t kMaxDepth = 1024;       // each group and each "or" is one level

// One packet as a filter sees it. `headers` is empty unless it is IPv4.
struct PacketView {
  std::span<const std::uint8_t> bytes;
  const std::optional<Headers>& headers;
  const Address& address;
};

// The offset of an indexed field.
struct FieldIndex {
  std::uint32_t bytes = 0;
  bool isFromEnd = false;
};

// A field's value in a packet; empty if the packet lacks the header or ends before the index. IPv4
// addresses have the form of WideIpv4().
using FieldReader = std::optional<std::uint64_t> (*)(const PacketView& packet,
                                                     const FieldIndex& index);

// A compiled filter: immutable, any thread.
class Filter {
 public:
  // Empty, with the reason in `error` if given, for text that the language or its limits refuse.
  static std::optional<Filter> Compile(std::string_view text, FilterError* error = nullptr);

  [[nodiscard]] bool Matches(const PacketView& packet) const;
  // Each name and each comparison is one test.
  [[nodiscard]] std::size_t TestCount() const noexcept { return testCount_; }

  struct Node {
    enum class Kind { Test, And, Or, Choose } kind = Kind::Test;
    std::size_t first = 0, second = 0, third = 0;  // indexes of the operands
    FieldReader read = nullptr;
    FieldIndex index = {};
    Comparison comparison = Comparison::NotEqual;
    WideNumber value = {};
  };

 private:
  [[nodiscard]] bool Evaluate(std::size_t node, const PacketView& packet) const;

  std::vector<Node> nodes_;
  std::size_t root_ = 0;
  std::size_t testCount_ = 0;
};

// A filter object: the form that WinDivertHelperCompileFilter() returns, accepted wherever filter
// text is. It starts with a mark and two hexadecimal digits, the number of tests (8 bits, as in the
// published library: 256 reads 0), followed by one "_" per test and the filter's text.
std::string MakeFilterObject(const Filter& filter, std::string_view text);

// The text inside an object; `filter` itself if it is plain text. Empty for an object whose count
// is 0 or does not match its tests.
std::optional<std::string_view> FilterTextOf(std::string_view filter) noexcept;

// Filter::Compile() for text or an object.
std::optional<Filter> CompileFilter(std::string_view filter, FilterError* error = nullptr);

}  // namespace driver
