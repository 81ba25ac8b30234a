#pragma once

#include <string_view>

namespace browser {

// True if `text` is one JSON value (RFC 8259), with white space around it at most: no raw control
// characters in strings, no comments, no trailing commas. Lone surrogates count as characters, raw
// or escaped. Nesting deeper than 1000 is refused (section 9 leaves the limit to the reader). Pure.
bool IsJsonText(std::wstring_view text);

}  // namespace browser
