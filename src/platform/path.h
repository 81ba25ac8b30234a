#pragma once

#include <cstddef>
#include <span>
#include <string>
#include <string_view>

namespace platform {

// `base` and `relative` with a backslash between, unless `base` ends in a slash of either kind;
// an empty base gives `relative` alone.
std::wstring JoinPath(std::wstring_view base, std::wstring_view relative);

// Everything before the last slash of either kind; empty when there is none.
std::wstring ParentFolder(std::wstring_view path);

// `path` in the form that Windows takes at any length, for calls on the file itself: an absolute
// path too long for the plain form gets the prefix "\\\\?\\" (or "\\\\?\\UNC\\"), every other text
// stays as it is. It must hold no "." or ".." parts then; slashes become backslashes.
std::wstring ExtendedPath(std::wstring_view path);

// The path that the system put into `buffer`, whose length without terminator it told as
// `lengthUnits`; empty when it told 0, a failure, or a length for which the buffer has no room.
std::wstring PathFromBuffer(std::span<const wchar_t> buffer, std::size_t lengthUnits);

}  // namespace platform
