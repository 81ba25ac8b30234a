#pragma once

#include <string>
#include <string_view>

namespace settings {

// "http://<host of the deployment>:31080".
std::wstring DefaultServerUrl();

// What the engineer or a file gave, as the base of every service address: trimmed, forward slashes
// only, with a scheme ("http://" when it has none) and without trailing slashes. An empty text
// gives the default address.
std::wstring NormaliseServerUrl(std::wstring_view typed);

// An address from one of the service's replies: as it is when it has "://" in it, any other is a
// path on the service, with or without a slash before it. An empty one stays empty.
std::wstring AbsoluteUrl(std::wstring_view address, std::wstring_view serverUrl);

}  // namespace settings
