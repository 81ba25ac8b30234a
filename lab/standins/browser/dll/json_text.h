#pragma once

#include <string_view>

namespace browser {

// True when `text` is one JSON value (RFC 8259) with nothing but white space around it: no raw
// control characters in strings, no comments, no commas at the end. Lone surrogates count as
// characters, raw or escaped. More than 1000 arrays and objects inside one another are refused
// (section 9 leaves the limit to the reader). Pure.
bool IsJsonText(std::wstring_view text);

}  // namespace browser
