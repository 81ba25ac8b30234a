#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

// What the log says behind a line with a known cause: the cause in plain words, and the cure. Pure;
// any thread.
namespace shell {

// Where in a line an entry of the catalogue looks for its pattern. All of them begin at the line's
// own beginning: behind that may stand words of the service, which can be anything.
enum class HintAt {
  Start,     // the line begins with it
  Whole,     // the line is it
  Failure,   // what a job, the update check or a reconnect reports as failed begins with it; with a
             // code, that is the number it ends with
  HttpCode,  // such a failure of a WinHTTP call, with the system's text for the code
  Refusal,   // the service has refused the connection with this code
  NoReason,  // a refusal that begins with it gives no reason
  Unsaved,   // the settings were not saved for the system's reason of this code
  Untrusted  // a downloaded program was not installed for a reason that begins with it
};

struct Hint {
  std::wstring_view cause;  // its name; rows of one name are told once between them
  HintAt at;
  std::uint32_t code;  // 0: any
  std::wstring_view pattern;
  std::wstring_view text;  // empty when the line itself gives cause and cure
};

// Every line with a known cause, in three parts, the more special ones first. No text has one of
// the words that give a line the colour of a failure, a warning or a success.
std::span<const std::span<const Hint>> HintCatalogue();

// What a line does not say itself.
struct HintFacts {
  std::wstring refusalCode;    // with which the service has last refused a connection
  bool requestFailed = false;  // the last job's request came to nothing: its line quotes no service
};

// The first entry that fits `line`; null when there is none.
const Hint* FindHint(std::wstring_view line, const HintFacts& facts);

// How an entry's text stands in the log.
std::wstring HintLine(const Hint& hint);

}  // namespace shell
