#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <stop_token>
#include <string>
#include <string_view>

#include "platform/mutex.h"

// The portable half of an HTTP exchange: waiting for an asynchronous call, and reading its result.
namespace service {

// The outcome of an asynchronous call.
struct CallResult {
  std::uint32_t error = 0;  // the system's code; 0 for success
  std::uint32_t bytes = 0;  // available or read, for calls that report a number
};

// Hands the result of an asynchronous call from the system's thread to the waiting thread. One call
// at a time.
//
// Threads: Finish() any; Begin() and Await() the thread that makes the calls.
class CallWait {
 public:
  // Must precede each call: the call may finish before it returns.
  void Begin() EXCLUDES(lock_);
  void Finish(CallResult result) noexcept EXCLUDES(lock_);
  // Empty when the call did not finish within `limit` or when `stop` was requested, which ends the
  // wait within milliseconds. A later result is discarded by the next Begin().
  [[nodiscard]] std::optional<CallResult> Await(std::chrono::milliseconds limit,
                                                const std::stop_token& stop) EXCLUDES(lock_);

 private:
  platform::Mutex lock_;
  platform::Condition changed_;
  std::optional<CallResult> result_ GUARDED_BY(lock_);
};

// The UTF-8 message of a failed call: the function's name, ": " and the system's text unchanged
// (with its line break); "<function> failed." when the system has no text.
std::string HttpFailureText(std::string_view function, std::wstring_view systemText);

// The value of a Content-Length header in bytes: decimal digits, optionally surrounded by blanks
// (RFC 9110, section 8.6). Empty for anything else, including a value beyond 64 bits.
std::optional<std::uint64_t> ParseContentLength(std::wstring_view value);

// 200 to 299.
bool IsHttpSuccess(std::uint32_t status) noexcept;

}  // namespace service
