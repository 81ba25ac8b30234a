#pragma once

#include <string>
#include <string_view>

namespace settings {

// "http://<host of the deployment>:31080".
std::wstring DefaultServerUrl();

// The base of all service addresses, from a typed or stored one: trimmed, with forward slashes, a
// scheme ("http://" by default) and no trailing slashes. The default address for an empty text.
std::wstring NormaliseServerUrl(std::wstring_view typed);

// The address in a reply of the service: unchanged with "://" in it, otherwise a path on the
// service, with or without a leading slash. Empty stays empty.
std::wstring AbsoluteUrl(std::wstring_view address, std::wstring_view serverUrl);

}  // namespace settings
