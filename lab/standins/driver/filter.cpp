#include "driver/filter.h"

#include <algorithm>
#include <charconv>

#include "driver/filter_fields.h"

namespace driver {
namespace {

bool Compares(Comparison comparison, const WideNumber& left, const WideNumber& right) noexcept {
  switch (comparison) {
    case Comparison::Equal:
      return left == right;
    case Comparison::NotEqual:
      return left != right;
    case Comparison::Less:
      return left < right;
    case Comparison::LessOrEqual:
      return left <= right;
    case Comparison::Greater:
      return left > right;
    case Comparison::GreaterOrEqual:
      return left >= right;
  }
  return false;
}

Comparison Opposite(Comparison comparison) noexcept {
  switch (comparison) {
    case Comparison::Equal:
      return Comparison::NotEqual;
    case Comparison::NotEqual:
      return Comparison::Equal;
    case Comparison::Less:
      return Comparison::GreaterOrEqual;
    case Comparison::LessOrEqual:
      return Comparison::Greater;
    case Comparison::Greater:
      return Comparison::LessOrEqual;
    case Comparison::GreaterOrEqual:
      return Comparison::Less;
  }
  return comparison;
}

// Recursive descent over the tokens. Each Parse function returns the index of the node it added, or
// nothing once error_ is set.
class Parser {
 public:
  using Parsed = std::optional<std::size_t>;

  Parser(const std::vector<Token>& tokens, std::vector<Filter::Node>& nodes, FilterError& error)
      : tokens_(tokens), nodes_(nodes), error_(error) {}

  Parsed ParseAll() {
    const Parsed root = ParseOr(kMaxDepth);
    if (root && Next().kind != TokenKind::End) return Fail("Filter expression parse error");
    return root;
  }
  [[nodiscard]] std::size_t TestCount() const noexcept { return testCount_; }

 private:
  Parsed ParseOr(std::size_t depth) {
    if (depth == 0) return Fail("Filter expression is too deep");
    const Parsed first = ParseAnd(depth);
    if (!first || Next().kind != TokenKind::Or) return first;
    ++at_;
    // Recursion instead of a loop, because the published limit counts each "or" as a level.
    const Parsed second = ParseOr(depth - 1);
    if (!second) return std::nullopt;
    return Add({.kind = Filter::Node::Kind::Or, .first = *first, .second = *second});
  }

  Parsed ParseAnd(std::size_t depth) {
    Parsed all = ParseArgument(depth);
    while (all && Next().kind == TokenKind::And) {
      ++at_;
      const Parsed next = ParseArgument(depth);
      if (!next) return std::nullopt;
      all = Add({.kind = Filter::Node::Kind::And, .first = *all, .second = *next});
    }
    return all;
  }

  Parsed ParseArgument(std::size_t depth) {
    if (Take(TokenKind::Open)) return ParseGroup(depth - 1);
    bool isNegated = false;
    while (Take(TokenKind::Not)) isNegated = !isNegated;
    return ParseTest(isNegated);
  }

  Parsed ParseGroup(std::size_t depth) {
    Parsed group = ParseOr(depth);
    if (group && Take(TokenKind::Question)) group = ParseChoice(*group, depth);
    if (!group) return std::nullopt;
    if (!Take(TokenKind::Close)) return Fail("Filter expression lacks a closing parenthesis");
    return group;
  }

  Parsed ParseChoice(std::size_t condition, std::size_t depth) {
    const Parsed yes = ParseOr(depth);
    if (!yes) return std::nullopt;
    if (!Take(TokenKind::Colon)) return Fail("Filter expression parse error");
    const Parsed no = ParseOr(depth);
    if (!no) return std::nullopt;
    return Add(
        {.kind = Filter::Node::Kind::Choose, .first = condition, .second = *yes, .third = *no});
  }

  Parsed ParseTest(bool isNegated) {
    if (Next().kind != TokenKind::Word) return Fail("Filter expression parse error");
    const Field* field = FindField(Next().text);
    if (field == nullptr) {
      return Fail(IsFieldOfOtherLayer(Next().text)
                      ? "Filter expression contains a bad token for layer"
                      : "Filter expression contains a bad token");
    }
    if (testCount_ == kMaxTests) return Fail("Filter expression is too long");
    ++testCount_;
    ++at_;
    Filter::Node test;
    test.read = field->read;
    if (field->indexUnitBytes != 0 && !TakeIndex(*field, test.index)) return std::nullopt;
    if (Next().kind == TokenKind::Compare) {
      test.comparison = Next().comparison;
      ++at_;
      if (!TakeValue(*field, test.value)) return std::nullopt;
    }
    if (isNegated) test.comparison = Opposite(test.comparison);
    FoldToPresence(*field, test);
    return Add(test);
  }

  static void FoldToPresence(const Field& field, Filter::Node& test) {
    if (field.presence == nullptr) return;
    const auto outcome = field.Decide(test.comparison, test.value);
    if (!outcome) return;
    test.read = field.presence;
    test.comparison = *outcome ? Comparison::NotEqual : Comparison::Equal;
    test.value = {};
  }

  bool TakeIndex(const Field& field, FieldIndex& index) {
    if (Take(TokenKind::OpenIndex) && Next().kind == TokenKind::Word) {
      const auto parsed = ParseIndex(field.indexUnitBytes, Next().text);
      if (parsed) index = *parsed;
      if (parsed && tokens_[++at_].kind == TokenKind::CloseIndex) {
        ++at_;
        return true;
      }
    }
    return Fail("Filter expression has a bad index").has_value();
  }

  bool TakeValue(const Field& field, WideNumber& value) {
    const auto number =
        Next().kind == TokenKind::Word ? ParseValue(field, Next().text) : std::nullopt;
    if (!number) return Fail("Filter expression has a bad number").has_value();
    value = *number;
    ++at_;
    return true;
  }

  [[nodiscard]] const Token& Next() const { return tokens_[at_]; }
  bool Take(TokenKind kind) {
    if (Next().kind != kind) return false;
    ++at_;  // never past End, because no caller takes End
    return true;
  }
  std::size_t Add(const Filter::Node& node) {
    nodes_.push_back(node);
    return nodes_.size() - 1;
  }
  Parsed Fail(const char* message) {
    // The first error wins: callers up the stack fail as well.
    if (!failed_) error_ = {message, Next().position};
    failed_ = true;
    return std::nullopt;
  }

  const std::vector<Token>& tokens_;
  std::vector<Filter::Node>& nodes_;
  FilterError& error_;
  std::size_t at_ = 0;
  std::size_t testCount_ = 0;
  bool failed_ = false;
};

constexpr std::string_view kMark = "@LAB2_";
constexpr std::size_t kHeadBytes = 8;  // the mark and two digits
constexpr char kTest = '_';            // in no filter that compiles

}  // namespace

std::optional<Filter> Filter::Compile(std::string_view text, FilterError* error) {
  FilterError ignored;
  FilterError& reason = error != nullptr ? *error : ignored;
  const auto tokens = CutTokens(text, reason);
  if (!tokens) return std::nullopt;
  Filter filter;
  Parser parser(*tokens, filter.nodes_, reason);
  const auto root = parser.ParseAll();
  if (!root) return std::nullopt;
  filter.root_ = *root;
  filter.testCount_ = parser.TestCount();
  return filter;
}

bool Filter::Matches(const PacketView& packet) const {
  return Evaluate(root_, packet);
}

bool Filter::Evaluate(std::size_t index, const PacketView& packet) const {
  const Node& node = nodes_[index];
  switch (node.kind) {
    case Node::Kind::And:
      return Evaluate(node.first, packet) && Evaluate(node.second, packet);
    case Node::Kind::Or:
      return Evaluate(node.first, packet) || Evaluate(node.second, packet);
    case Node::Kind::Choose:
      return Evaluate(node.first, packet) ? Evaluate(node.second, packet)
                                          : Evaluate(node.third, packet);
    case Node::Kind::Test:
      break;
  }
  const auto value = node.read(packet, node.index);
  return value && Compares(node.comparison, {0, *value}, node.value);
}

std::string MakeFilterObject(const Filter& filter, std::string_view text) {
  constexpr char kDigits[] = "0123456789abcdef";
  const std::size_t count = filter.TestCount() % 256;
  std::string object(kMark);
  object += kDigits[count / 16];
  object += kDigits[count % 16];
  object.append(filter.TestCount(), kTest);
  return object.append(text);
}

std::optional<std::string_view> FilterTextOf(std::string_view filter) noexcept {
  if (!filter.starts_with('@')) return filter;
  if (!filter.starts_with(kMark) || filter.size() < kHeadBytes) return std::nullopt;
  std::size_t stated = 0;
  const char* const end = filter.data() + kHeadBytes;
  if (std::from_chars(filter.data() + kMark.size(), end, stated, 16).ptr != end)
    return std::nullopt;
  filter.remove_prefix(kHeadBytes);
  const std::size_t count = std::min(filter.find_first_not_of(kTest), filter.size());
  if (stated == 0 || stated != count) return std::nullopt;
  return filter.substr(count);
}

std::optional<Filter> CompileFilter(std::string_view filter, FilterError* error) {
  const auto text = FilterTextOf(filter);
  auto compiled = text ? Filter::Compile(*text, error) : std::nullopt;
  const bool isObject = filter.starts_with('@');
  if (!isObject || (compiled && MakeFilterObject(*compiled, *text) == filter)) return compiled;
  if (error != nullptr) *error = {"Filter object is invalid", 0};
  return std::nullopt;
}

}  // namespace driver
