#pragma once

#include <cstdint>
#include <string>

// Results of system calls and the system's own texts for them. Any thread.
namespace platform {

// The result of a system call whose caller needs the reason for a failure.
struct SystemResult {
  bool succeeded = false;
  // The system's code; 0 on success, and for a failure without a code. A function that may return a
  // success with a code says so.
  std::uint32_t errorCode = 0;
};

// The system's text for an error code in one line, without line break: "拒绝访问。" for code 5 on a
// Chinese Windows. "错误 " and the number for a code without a text.
std::wstring ErrorReason(std::uint32_t code);

// The reason for a failure, empty for a success.
inline std::wstring FailureReason(const SystemResult& result) {
  return result.succeeded ? std::wstring() : ErrorReason(result.errorCode);
}

// Windows' own text for `code` in the user's default language, with its inserts left in place and
// its trailing line break. Empty when Windows has none. Changes GetLastError(). Windows only.
//
// The texts of WinHTTP's codes (12000 to 12199) are in winhttp.dll, not in the system's table.
std::wstring SystemErrorText(std::uint32_t code);

// Takes WinHTTP's texts from the message table of the module `httpMessages` (an HMODULE, borrowed;
// nullptr: no such texts).
std::wstring SystemErrorText(std::uint32_t code, void* httpMessages);

}  // namespace platform
