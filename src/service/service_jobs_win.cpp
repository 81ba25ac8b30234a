#include "diag/proxy_bypass.h"
#include "service/service_jobs.h"

namespace service {

ConnectionJobs RealConnectionJobs(const std::stop_token& closing) {
  const auto editProxyBypass = [](ProxyBypassChange change,
                                  const std::vector<std::wstring>& routes) {
    const auto edit =
        change == ProxyBypassChange::Add ? diag::AddProxyBypass : diag::RemoveProxyBypass;
    return edit(routes, diag::RealProxyOverride(), diag::RealProxyNote());
  };
  return {RealJsonRequester(closing), editProxyBypass, closing};
}

}  // namespace service
