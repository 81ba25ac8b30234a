#include "webview/page_source.h"

#include <algorithm>

namespace webview {

std::wstring PageFileUrl(std::wstring_view programPath,
                         const std::function<bool(const std::wstring& path)>& fileExists) {
  const std::wstring folder(programPath.substr(0, programPath.rfind(L'\\')));
  std::wstring target = folder + L"\\app.html";
  if (!fileExists(target)) target = folder + L"\\..\\..\\..\\src\\VelmarineNative\\webui\\app.html";
  std::replace(target.begin(), target.end(), L'\\', L'/');
  return L"file:///" + target;
}

}  // namespace webview
