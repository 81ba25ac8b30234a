#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace shell {

// The root of the source tree from whose build output the program at `programPath` runs: the part
// before "\src\VelmarineNative\". Empty optional when it runs from anywhere else.
std::optional<std::wstring> DevelopmentTreeRoot(std::wstring_view programPath);

}  // namespace shell
