#pragma once

#include <string>
#include <string_view>

// Text is UTF-16 inside the program and UTF-8 outside it (files, HTTP bodies, the page). A
// std::wstring contains UTF-16 code units on every platform: even where wchar_t is wider, each
// element is one unit (at most 0xFFFF) and an astral character is a surrogate pair.
namespace text {

// Decodes UTF-8. Each maximal invalid byte sequence becomes one U+FFFD, like MultiByteToWideChar
// without its error flag. Never fails.
std::wstring FromUtf8(std::string_view bytes);

// Decodes a file that an editor may have saved: UTF-16 after its byte-order mark, else UTF-8.
// Removes the mark. An odd last byte of UTF-16 becomes U+FFFD.
std::wstring FromMarkedBytes(std::string_view bytes);

// Encodes to UTF-8. A lone surrogate becomes U+FFFD. Never fails.
std::string ToUtf8(std::wstring_view units);

}  // namespace text
