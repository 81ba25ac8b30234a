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

}  // namespace settings
