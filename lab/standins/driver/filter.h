#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string_view>
#include <vector>

#include "driver/filter_numbers.h"
#include "driver/headers.h"
#include "driver/record.h"

// The filter language of the published driver, as far as IPv4 at the network layer goes.
//
//   filter  := conj { ("or" | "||") conj }           conj := arg { ("and" | "&&") arg }
//   arg     := "(" filter [ "?" filter ":" filter ] ")" | { "not" | "!" } test
//   test    := field [ ("=" | "==" | "!=" | "<" | "<=" | ">" | ">=") number ]
//   field   := name [ "[" ["-"] digits ["b"] "]" ]
//
// Names and words are case-sensitive. A group cannot be negated. Numbers are decimal, 0x
// hexadecimal, addresses, or TCP, UDP, ICMP, ICMPV6, TRUE, FALSE, PACKET; all are compared unsigned
// with 128 bits, in which no plain number of 32 bits is an IPv4 address. A ":" right behind a
// number belongs to it. A comparison on a header that the packet does not have fails, negated or
// not; but where the number alone decides it, as in "tcp.UrgPtr == 70000", the test asks for the
// header instead: here "not tcp", true of every packet without one.
namespace driver {

inline constexpr std::size_t kMaxTests = 256;        // that compile
inline constexpr std::size_t kMaxDriverTests = 255;  // that the driver takes when opening
inline constexpr std::size_t kMaxTokens = 1278;      // the end counts as one
inline constexpr std::size_t kMaxTokenBytes = 39;
inline constexpr std::size_t kMaxDepth = 1024;  // each group and each "or" is one level

struct FilterError {
  const char* message = "";  // static text
  std::size_t position = 0;  // in the filter's text, in bytes
};

// One packet as a filter sees it. `headers` is empty for what is not IPv4.
struct PacketView {
  std::span<const std::uint8_t> bytes;
  const std::optional<Headers>& headers;
  const Address& address;
};

// Where a field that takes an index begins.
struct FieldIndex {
  std::uint32_t bytes = 0;
  bool isFromEnd = false;
};

// The value of a field in a packet; nothing when the packet has no such header, or ends before the
// index. An IPv4 address has the form of WideIpv4().
using FieldReader = std::optional<std::uint64_t> (*)(const PacketView& packet,
                                                     const FieldIndex& index);

// A compiled filter: immutable, any thread.
class Filter {
 public:
  // Nothing, with the reason in `error` if given, for text that the language or its limits refuse.
  static std::optional<Filter> Compile(std::string_view text, FilterError* error = nullptr);

  [[nodiscard]] bool Matches(const PacketView& packet) const;
  // A name or a comparison is one test.
  [[nodiscard]] std::size_t TestCount() const noexcept { return testCount_; }

  enum class Compare { Equal, NotEqual, Less, LessOrEqual, Greater, GreaterOrEqual };
  struct Node {
    enum class Kind { Test, And, Or, Choose } kind = Kind::Test;
    std::size_t first = 0, second = 0, third = 0;  // indexes of the operands
    FieldReader read = nullptr;
    FieldIndex index = {};
    Compare compare = Compare::NotEqual;
    WideNumber value = {};
  };

 private:
  [[nodiscard]] bool Evaluate(std::size_t node, const PacketView& packet) const;

  std::vector<Node> nodes_;
  std::size_t root_ = 0;
  std::size_t testCount_ = 0;
};

}  // namespace driver
