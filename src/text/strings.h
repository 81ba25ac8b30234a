#pragma once

#include <span>
#include <string>
#include <string_view>
#include <vector>

// Pure operations on UTF-16 text; none of them depends on the process's locale.
namespace text {

// Between the lines of a text that the page or a box shows.
inline constexpr std::wstring_view kLineBreak = L"\r\n";

// White space as Windows' wide-character classification has it: the ASCII spaces, U+0085, U+00A0
// and the Unicode space separators, among them the full-width U+3000 of Chinese input methods.
bool IsSpace(wchar_t unit) noexcept;

std::wstring Trim(std::wstring_view value);

// Makes texts that differ in letter case only the same: Unicode's simple case folding, unit by
// unit, lengths unchanged. That is the lower case but for a few letters (Cherokee folds to the
// upper case, the final sigma to the other). Letters beyond the basic plane are left alone.
std::wstring FoldCase(std::wstring_view value);
bool EqualsIgnoreCase(std::wstring_view left, std::wstring_view right);

// The lines of `value`, cut at CR, LF or CRLF; empty lines are left out.
std::vector<std::wstring> SplitLines(std::wstring_view value);

std::wstring Join(std::span<const std::wstring> parts, std::wstring_view separator);

// Percent-encodes one URL component: of its UTF-8 bytes, A-Z a-z 0-9 - . _ ~ stay, every other
// becomes "%" and two upper-case hexadecimal digits (RFC 3986, section 2.3).
std::wstring PercentEncode(std::wstring_view component);

}  // namespace text
