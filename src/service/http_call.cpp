#include "service/http_call.h"

#include <algorithm>
#include <limits>

#include "text/strings.h"
#include "text/utf8.h"

namespace service {
namespace {

// How often a wait checks for a requested stop.
constexpr std::chrono::milliseconds kStopCheckInterval{20};

}  // namespace

void CallWait::Begin() {
  const platform::MutexLock held(lock_);
  result_.reset();
}

void CallWait::Finish(CallResult result) noexcept {
  {
    const platform::MutexLock held(lock_);
    result_ = result;
  }
  changed_.NotifyAll();
}

std::optional<CallResult> CallWait::Await(std::chrono::milliseconds limit,
                                          const std::stop_token& stop) {
  const auto end = std::chrono::steady_clock::now() + limit;
  const platform::MutexLock held(lock_);
  // Polls instead of using a std::stop_callback: destroying one while another thread runs it waits
  // for that thread, and mingw-w64's library was seen to wait for ever.
  while (!result_ && !stop.stop_requested()) {
    // Rounded up: the last fraction of a millisecond would otherwise be a busy loop.
    const auto left =
        std::chrono::ceil<std::chrono::milliseconds>(end - std::chrono::steady_clock::now());
    if (left.count() <= 0) return std::nullopt;
    changed_.WaitFor(lock_, std::min(left, kStopCheckInterval));
  }
  // A stop takes precedence over a result that arrives with it.
  return stop.stop_requested() ? std::nullopt : result_;
}

std::string HttpFailureText(std::string_view function, std::wstring_view systemText) {
  std::string message(function);
  if (systemText.empty()) return message.append(" failed.");
  return message.append(": ").append(text::ToUtf8(systemText));
}

std::optional<std::uint64_t> ParseContentLength(std::wstring_view value) {
  constexpr std::uint64_t kMax = std::numeric_limits<std::uint64_t>::max();
  const std::wstring digits = text::Trim(value);
  if (digits.empty()) return std::nullopt;

  std::uint64_t lengthBytes = 0;
  for (const wchar_t unit : digits) {
    if (unit < L'0' || unit > L'9') return std::nullopt;
    const auto digit = static_cast<std::uint64_t>(unit - L'0');
    // Checked before the multiplication, which would wrap.
    if (lengthBytes > (kMax - digit) / 10) return std::nullopt;
    lengthBytes = lengthBytes * 10 + digit;
  }
  return lengthBytes;
}

bool IsHttpSuccess(std::uint32_t status) noexcept {
  return status >= 200 && status <= 299;
}

}  // namespace service
