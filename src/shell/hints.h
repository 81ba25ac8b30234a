#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

// Hints in the log: a line with a known cause is followed by that cause in plain words and its
// cure. Pure; any thread.
namespace shell {

// How an entry's pattern is matched. Always from the start of the line: the rest may be the
// service's words, which can be anything.
enum class HintAt {
  Start,     // the line starts with it
  Whole,     // the line equals it
  Failure,   // the failure reported by a job, the update check or a reconnect starts with it, and
             // ends with the code as a number, if there is one
  HttpCode,  // such a failure of a WinHTTP call with the system's text for the code
  Refusal,   // the service has refused the connection with this code
  NoReason,  // a refusal that starts with it and gives no reason
  Unsaved,   // the settings were not saved, for the system's reason of this code
  Untrusted  // a downloaded program was not installed, for a reason that starts with it
};

struct Hint {
  std::wstring_view cause;  // rows with the same name give one hint per run
  HintAt at;
  std::uint32_t code;  // 0: any
  std::wstring_view pattern;
  std::wstring_view text;  // empty when the line itself names cause and cure
};

// Every line with a known cause, in three parts, special rows before general ones. No text contains
// a word that would colour it as a failure, a warning or a success.
std::span<const std::span<const Hint>> HintCatalogue();

// Facts that a line does not contain.
struct HintFacts {
  std::wstring refusalCode;    // of the service's last refusal of a connection
  bool requestFailed = false;  // the last job's request failed: its line does not quote the service
};

// The first matching entry, or null.
const Hint* FindHint(std::wstring_view line, const HintFacts& facts);

// The entry's text as a log line.
std::wstring HintLine(const Hint& hint);

}  // namespace shell
