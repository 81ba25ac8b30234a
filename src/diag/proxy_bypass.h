#pragma once

#include <string>
#include <vector>

namespace diag {

// The current user's proxy bypass list. The editing itself is not built yet: both operations leave
// the list alone and, as there is nothing to report, return an empty text.
//
// Threads: any; called on the worker thread that connects or disconnects.
std::wstring AddProxyBypass(const std::vector<std::wstring>& routes);
std::wstring RemoveProxyBypass(const std::vector<std::wstring>& routes);

}  // namespace diag
