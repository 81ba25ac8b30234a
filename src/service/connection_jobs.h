#pragma once

#include <functional>
#include <string>
#include <vector>

#include "service/http_transport.h"
#include "settings/settings.h"
#include "tunnel/tunnel.h"

namespace service {

// What the connection jobs act through: the program's own operations, or fakes in tests.
struct ConnectionPorts {
  JsonRequester sendJsonRequest;
  std::function<void(const settings::Settings&)> saveSettings;
  std::function<std::wstring(const std::vector<std::wstring>& routes)> addProxyBypass;
  std::function<std::wstring(const std::vector<std::wstring>& routes)> removeProxyBypass;
};

// The program's own: WinHTTP, the settings file, the system's proxy list. Windows only.
ConnectionPorts RealConnectionPorts();

// Asks the service for a connection and stores what it grants in `settings`, which are then saved.
// Returns the line for the log; a refusal is such a line too and leaves its code in
// heartbeatMessage. Throws std::runtime_error for transport failures and unusable replies.
std::wstring AuthorizeConnection(settings::Settings& settings, const ConnectionPorts& ports);

// Reports the end of the connection, if one is held, and clears it locally in every case but a
// thrown transport failure. Each line of the returned text begins with CRLF.
std::wstring DisconnectConnection(settings::Settings& settings, const ConnectionPorts& ports);

// The whole connect job: disconnect, authorise, start the tunnel. Throws nothing derived from
// std::exception; a failure is reported to the service and returned as "Error: ...".
std::wstring ConnectJob(settings::Settings& settings, tunnel::Tunnel& tunnel,
                        const ConnectionPorts& ports);

// The stop job: stops the tunnel, then tells the service.
std::wstring StopJob(settings::Settings& settings, tunnel::Tunnel& tunnel,
                     const ConnectionPorts& ports);

}  // namespace service
