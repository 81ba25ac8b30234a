#pragma once

#include <algorithm>
#include <functional>
#include <string>
#include <string_view>

namespace webview {

// The address of the page for a program whose resources hold none: "app.html" beside the program
// (`programPath`, with backslashes) when that file exists, otherwise the page's place in a source
// tree above the build output, whether it exists or not. Pure.
inline std::wstring PageFileUrl(std::wstring_view programPath,
                                const std::function<bool(const std::wstring& path)>& fileExists) {
  const std::wstring folder(programPath.substr(0, programPath.rfind(L'\\')));
  std::wstring target = folder + L"\\app.html";
  if (!fileExists(target)) target = folder + L"\\..\\..\\..\\src\\VelmarineNative\\webui\\app.html";
  std::replace(target.begin(), target.end(), L'\\', L'/');
  return L"file:///" + target;
}

}  // namespace webview
