#include "shell/hints.h"

#include <charconv>
#include <optional>
#include <string>

#include "platform/system_error.h"
#include "text/strings.h"
#include "text/utf8.h"

namespace shell {
namespace {

constexpr std::wstring_view kHintPrefix = L"提示：";
constexpr std::wstring_view kJobFailed = L"Error: ";
constexpr std::wstring_view kCheckFailed = L"自动更新检查异常：";
constexpr std::wstring_view kDesktopFailed = L"远程桌面失败：";
constexpr std::wstring_view kReconnectFailed = L"警告：自动重连未成功（";
constexpr std::wstring_view kReconnectEnd = L"），将继续重试。";
constexpr std::wstring_view kNotAuthorized = L"\r\nConnection authorization failed: ";
constexpr std::wstring_view kUnsaved = L"警告：设置未能保存：";
constexpr std::wstring_view kNotInstalled = L"强制更新未安装 ";
constexpr std::wstring_view kHttpCall = L"WinHttp";

// The rest of `text` after `prefix`.
std::optional<std::wstring_view> After(std::wstring_view prefix, std::wstring_view text) {
  if (!text.starts_with(prefix)) return std::nullopt;
  return text.substr(prefix.size());
}

// The failure that a part of the program itself has reported.
std::optional<std::wstring_view> OwnFailure(std::wstring_view line, const HintFacts& facts) {
  for (const std::wstring_view prefix : {kJobFailed, kCheckFailed}) {
    if (const auto failure = After(prefix, line)) return failure;
  }
  // The service's reasons follow the same words.
  if (facts.requestFailed && line.starts_with(kDesktopFailed)) return After(kDesktopFailed, line);
  if (!line.ends_with(kReconnectEnd)) return std::nullopt;
  return After(kReconnectFailed, line.substr(0, line.size() - kReconnectEnd.size()));
}

// The decimal number at the end of `text`.
std::optional<std::uint32_t> EndingNumber(std::wstring_view text) {
  const std::size_t last = text.find_last_not_of(L"0123456789");
  // npos + 1 is 0: the whole text may consist of digits.
  const std::string digits = text::ToUtf8(text.substr(last + 1));
  std::uint32_t number = 0;
  const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), number);
  // No digits at all, or more than fit 32 bits.
  if (error != std::errc()) return std::nullopt;
  return number;
}

bool FitsFailure(const Hint& hint, std::wstring_view line, const HintFacts& facts) {
  const auto failure = OwnFailure(line, facts);
  if (!failure || !failure->starts_with(hint.pattern)) return false;
  return hint.code == 0 || EndingNumber(*failure) == hint.code;
}

// The transport's texts contain the system's text instead of a number.
bool FitsHttpCode(const Hint& hint, std::wstring_view line, const HintFacts& facts) {
  constexpr std::wstring_view kColon = L": ";
  const auto failure = OwnFailure(line, facts);
  if (!failure || !failure->starts_with(kHttpCall)) return false;
  const std::size_t colon = failure->find(kColon);
  if (colon == std::wstring_view::npos) return false;
  return text::Trim(failure->substr(colon + kColon.size())) == platform::ErrorReason(hint.code);
}

// A connection's result starts with a line break and the end of the previous connection.
bool FitsRefusal(const Hint& hint, std::wstring_view line, const HintFacts& facts) {
  const bool isRefusal =
      line.starts_with(text::kLineBreak) && line.find(kNotAuthorized) != std::wstring_view::npos;
  // The code of an earlier refusal remains in the settings, so it counts for such a line only.
  return isRefusal && text::EqualsIgnoreCase(facts.refusalCode, hint.pattern);
}

// The first occurrence of the words in a connection's result is the program's own, unless more text
// follows it.
bool FitsNoReason(const Hint& hint, std::wstring_view line) {
  if (!line.starts_with(text::kLineBreak)) return line == hint.pattern;
  const std::size_t first = line.find(kNotAuthorized);
  return hint.pattern == kNotAuthorized.substr(text::kLineBreak.size()) &&
         first != std::wstring_view::npos && first + kNotAuthorized.size() == line.size();
}

bool FitsUnsaved(const Hint& hint, std::wstring_view line) {
  const auto reason = After(kUnsaved, line);
  // The bracket ends the system's text, which may be the beginning of another one.
  return reason && reason->starts_with(platform::ErrorReason(hint.code) + L"（");
}

// The version in between comes from the service and may contain any text, so the last colon counts.
bool FitsUntrusted(const Hint& hint, std::wstring_view line) {
  const std::size_t colon = line.rfind(L'：');
  return line.starts_with(kNotInstalled) && colon != std::wstring_view::npos &&
         line.substr(colon + 1).starts_with(hint.pattern);
}

bool Fits(const Hint& hint, std::wstring_view line, const HintFacts& facts) {
  switch (hint.at) {
    case HintAt::Start:
      return line.starts_with(hint.pattern);
    case HintAt::Whole:
      return line == hint.pattern;
    case HintAt::Failure:
      return FitsFailure(hint, line, facts);
    case HintAt::HttpCode:
      return FitsHttpCode(hint, line, facts);
    case HintAt::Refusal:
      return FitsRefusal(hint, line, facts);
    case HintAt::NoReason:
      return FitsNoReason(hint, line);
    case HintAt::Unsaved:
      return FitsUnsaved(hint, line);
    case HintAt::Untrusted:
      return FitsUntrusted(hint, line);
  }
  return false;
}

}  // namespace

const Hint* FindHint(std::wstring_view line, const HintFacts& facts) {
  for (const std::span<const Hint> part : HintCatalogue()) {
    for (const Hint& hint : part) {
      // The first match counts: the catalogue lists special entries before general ones.
      if (Fits(hint, line, facts)) return &hint;
    }
  }
  return nullptr;
}

std::wstring HintLine(const Hint& hint) {
  return std::wstring(kHintPrefix).append(hint.text);
}

}  // namespace shell
