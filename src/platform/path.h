#pragma once

#include <string>
#include <string_view>

namespace platform {

// `base` and `relative` with a backslash between, unless `base` ends in a slash of either kind;
// an empty base gives `relative` alone.
std::wstring JoinPath(std::wstring_view base, std::wstring_view relative);

// Everything before the last slash of either kind; empty when there is none.
std::wstring ParentFolder(std::wstring_view path);

}  // namespace platform
