#pragma once

#include <string>
#include <string_view>

namespace update {

// `text` as one argument of a command line: in quotes, each quote inside with a backslash before
// it. Backslashes stay as they are, which suits paths; a text with a backslash at its end or before
// a quote does not come out of the system's splitting as it went in. Pure; any thread.
std::wstring QuoteArgument(std::wstring_view text);

}  // namespace update
