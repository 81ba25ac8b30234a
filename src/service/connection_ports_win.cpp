#include "diag/proxy_bypass.h"
#include "service/connection_jobs.h"
#include "settings/settings.h"

namespace service {

ConnectionPorts RealConnectionPorts() {
  ConnectionPorts ports;
  ports.sendJsonRequest = SendJsonRequest;
  ports.saveSettings = [](const settings::Settings& settings) { settings::SaveSettings(settings); };
  ports.addProxyBypass = diag::AddProxyBypass;
  ports.removeProxyBypass = diag::RemoveProxyBypass;
  return ports;
}

}  // namespace service
