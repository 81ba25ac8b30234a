#include "diag/proxy_bypass.h"
#include "service/connection_jobs.h"
#include "service/device_resolve.h"
#include "settings/settings.h"

namespace service {

ConnectionPorts RealConnectionPorts() {
  ConnectionPorts ports;
  ports.sendJsonRequest = SendJsonRequest;
  ports.saveSettings = [](const settings::Settings& settings) { settings::SaveSettings(settings); };
  ports.addProxyBypass = [](const std::vector<std::wstring>& routes) {
    return diag::AddProxyBypass(routes, diag::RealProxyOverride());
  };
  ports.removeProxyBypass = [](const std::vector<std::wstring>& routes) {
    return diag::RemoveProxyBypass(routes, diag::RealProxyOverride());
  };
  return ports;
}

ResolvePorts RealResolvePorts() {
  return {SendJsonRequest,
          [](const settings::Settings& settings) { settings::SaveSettings(settings); }};
}

}  // namespace service
