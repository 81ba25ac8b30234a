#include "checks/show_file_win.h"

#include "platform/windows_sdk.h"
// After the SDK, which it needs.
#include <objbase.h>
#include <shellapi.h>

namespace checks {

void ShowFile(const std::wstring& path) {
  SHELLEXECUTEINFOW info{};
  info.cbSize = sizeof(info);
  info.fMask = SEE_MASK_NOASYNC | SEE_MASK_FLAG_NO_UI;  // this process or thread may end next
  info.lpVerb = L"open";
  info.lpFile = path.c_str();
  info.nShow = SW_SHOWNORMAL;
  // What the file's kind is registered with may be a COM object.
  const HRESULT entered =
      ::CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED | COINIT_DISABLE_OLE1DDE);
  ::ShellExecuteExW(&info);
  if (SUCCEEDED(entered)) ::CoUninitialize();
}

}  // namespace checks
