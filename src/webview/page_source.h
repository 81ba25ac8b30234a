#pragma once

#include <functional>
#include <string>
#include <string_view>

// Where the page comes from: the program's resources, else a file.
namespace webview {

// The page in the program's resources, decoded; empty when there is none. Windows only.
std::wstring PageFromResources();

// The address to show when the resources hold no page: "app.html" beside the program
// (`programPath`, with backslashes) when that file exists, else the page's place in a source tree
// above the build output, whether it is there or not. Pure.
std::wstring PageFileUrl(std::wstring_view programPath,
                         const std::function<bool(const std::wstring& path)>& fileExists);

}  // namespace webview
