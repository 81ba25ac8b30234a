#include "platform/url.h"
#include "platform/windows_sdk.h"
// After the SDK, which it needs.
#include <winhttp.h>

namespace platform {

bool CrackUrl(std::wstring_view url, UrlParts& parts) {
  if (url.empty()) {  // the call would take length 0 for "up to the terminator"
    ::SetLastError(ERROR_WINHTTP_INVALID_URL);
    return false;
  }
  constexpr DWORD kPointIntoInput = static_cast<DWORD>(-1);
  URL_COMPONENTS found{};
  found.dwStructSize = sizeof(found);
  found.dwSchemeLength = kPointIntoInput;
  found.dwHostNameLength = kPointIntoInput;
  found.dwUserNameLength = kPointIntoInput;
  found.dwPasswordLength = kPointIntoInput;
  found.dwUrlPathLength = kPointIntoInput;
  found.dwExtraInfoLength = kPointIntoInput;
  if (!::WinHttpCrackUrl(url.data(), static_cast<DWORD>(url.size()), 0, &found)) return false;
  parts.host.assign(found.lpszHostName, found.dwHostNameLength);
  parts.path.assign(found.lpszUrlPath, found.dwUrlPathLength);
  parts.path.append(found.lpszExtraInfo, found.dwExtraInfoLength);
  if (parts.path.empty()) parts.path = L"/";
  parts.port = found.nPort;
  parts.secure = found.nScheme == INTERNET_SCHEME_HTTPS;
  return true;
}

}  // namespace platform
