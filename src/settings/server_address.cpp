#include "settings/server_address.h"

#include <algorithm>

#include "text/strings.h"

namespace settings {

std::wstring DefaultServerUrl() {
  return L"http://" VELMARINE_DEFAULT_HOST ":31080";
}

std::wstring NormaliseServerUrl(std::wstring_view typed) {
  std::wstring url = text::Trim(typed);
  if (url.empty()) return DefaultServerUrl();
  // Engineers paste addresses with Windows' slashes.
  std::replace(url.begin(), url.end(), L'\\', L'/');
  if (url.find(L"://") == std::wstring::npos) url.insert(0, L"http://");
  url.erase(url.find_last_not_of(L'/') + 1);
  return url.empty() ? DefaultServerUrl() : url;
}

std::wstring AbsoluteUrl(std::wstring_view address, std::wstring_view serverUrl) {
  if (address.empty() || address.find(L"://") != std::wstring_view::npos) {
    return std::wstring(address);
  }
  std::wstring url = NormaliseServerUrl(serverUrl);
  // The normalised address ends without a slash.
  if (address.front() != L'/') url += L'/';
  return url.append(address);
}

}  // namespace settings
