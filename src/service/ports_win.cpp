#include "diag/proxy_bypass.h"
#include "service/connection_jobs.h"

namespace service {

ConnectionPorts RealConnectionPorts(const std::stop_token& closing) {
  ConnectionPorts ports;
  ports.closing = closing;
  ports.sendJsonRequest = RealJsonRequester(closing);
  ports.addProxyBypass = [](const std::vector<std::wstring>& routes) {
    return diag::AddProxyBypass(routes, diag::RealProxyOverride(), diag::RealProxyNote());
  };
  ports.removeProxyBypass = [](const std::vector<std::wstring>& routes) {
    return diag::RemoveProxyBypass(routes, diag::RealProxyOverride(), diag::RealProxyNote());
  };
  return ports;
}

}  // namespace service
