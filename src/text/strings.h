#pragma once

#include <span>
#include <string>
#include <string_view>
#include <vector>

// Operations on UTF-16 text. Pure and independent of the process's locale.
namespace text {

// Separates the lines of texts for the page and for message boxes.
inline constexpr std::wstring_view kLineBreak = L"\r\n";

// White space as on Windows (iswspace): the ASCII spaces, U+0085, U+00A0 and the Unicode space
// separators, including the full-width U+3000 of Chinese input methods.
bool IsSpace(wchar_t unit) noexcept;

std::wstring Trim(std::wstring_view value);

// Unicode's simple case folding, unit by unit and without changing the length: texts that differ
// only in letter case become equal. Mostly lower case (but Cherokee folds to upper case, the final
// sigma to the other one). Does not change letters beyond the basic plane.
std::wstring FoldCase(std::wstring_view value);
bool EqualsIgnoreCase(std::wstring_view left, std::wstring_view right);

// The lines of `value`, which end in CR, LF or CRLF, without empty lines.
std::vector<std::wstring> SplitLines(std::wstring_view value);

std::wstring Join(std::span<const std::wstring> parts, std::wstring_view separator);

// Percent-encodes the UTF-8 form of one URL component (RFC 3986, section 2.3): every byte except
// A-Z a-z 0-9 - . _ ~ becomes "%" and two upper-case hexadecimal digits.
std::wstring PercentEncode(std::wstring_view component);

}  // namespace text
