#include "diag/proxy_bypass.h"
#include "service/connection_jobs.h"

namespace service {

ConnectionPorts RealConnectionPorts() {
  ConnectionPorts ports;
  ports.sendJsonRequest = SendJsonRequest;
  ports.addProxyBypass = [](const std::vector<std::wstring>& routes) {
    return diag::AddProxyBypass(routes, diag::RealProxyOverride());
  };
  ports.removeProxyBypass = [](const std::vector<std::wstring>& routes) {
    return diag::RemoveProxyBypass(routes, diag::RealProxyOverride());
  };
  return ports;
}

}  // namespace service
