#include "diag/proxy_bypass.h"

namespace diag {

std::wstring AddProxyBypass(const std::vector<std::wstring>& /*routes*/) {
  return {};
}

std::wstring RemoveProxyBypass(const std::vector<std::wstring>& /*routes*/) {
  return {};
}

}  // namespace diag
