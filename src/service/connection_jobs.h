#pragma once

#include <functional>
#include <stop_token>
#include <string>
#include <vector>

#include "service/http_transport.h"
#include "settings/settings_store.h"
#include "tunnel/tunnel.h"

// The connection from the client's side: asking for it, ending it, and the two jobs that do so
// together with the tunnel. All block until done; each runs on the one worker thread, on the job's
// own copy of the settings, and owns nothing. What ends a connection goes by the grant that is in
// force: to the service that gave it, in the name of the engineer who asked, with its own routes.
namespace service {

// What the connection jobs act through: the program's own operations, or fakes in tests.
struct ConnectionPorts {
  JsonRequester sendJsonRequest;
  std::function<std::wstring(const std::vector<std::wstring>& routes)> addProxyBypass;
  std::function<std::wstring(const std::vector<std::wstring>& routes)> removeProxyBypass;
  std::stop_token closing;  // requested when the program ends
};

// The program's own: WinHTTP, whose requests end when `closing` is requested, and the system's
// proxy list. Windows only.
ConnectionPorts RealConnectionPorts(const std::stop_token& closing);

// Asks the service for a connection and stores what it grants in `job`, saved before the proxy list
// is touched. Returns the line for the log; a refusal is such a line too and leaves its code in
// heartbeatMessage. Throws std::runtime_error for transport failures and unusable replies; nothing
// but a freshly made engineerId has changed then.
std::wstring AuthorizeConnection(settings::JobSettings& job, const ConnectionPorts& ports);

// Reports the end of the connection, if one is held, and in every case clears it locally, sets
// targetNetwork to "ALL" and saves. Each line of the returned text begins with CRLF; the text is
// empty when there is nothing to tell. A refused report is such a line. When no usable reply comes,
// throws std::runtime_error, after the clearing and saving: the client never believes in a
// connection that the engineer has ended.
std::wstring DisconnectConnection(settings::JobSettings& job, const ConnectionPorts& ports);

// The whole connect job: disconnect, authorise, start the tunnel. Since disconnecting sets
// targetNetwork to "ALL", the job always asks for every shared network. Throws nothing: a failure
// is reported to the service (when there is a connection id to name), the connection is cleared,
// and the text is "Error: " and the message, or "Unknown error.". When the program's end is what
// cuts it short, a connection that was granted stays in the settings as that of any closed window
// does: nobody can be told now, and the next connect reports its end.
std::wstring ConnectJob(settings::JobSettings& job, tunnel::Tunnel& tunnel,
                        const ConnectionPorts& ports);

// The stop job: stops the tunnel, then tells the service. The text is the tunnel's followed by
// that of DisconnectConnection; throws as it does, with the tunnel stopped.
std::wstring StopJob(settings::JobSettings& job, tunnel::Tunnel& tunnel,
                     const ConnectionPorts& ports);

}  // namespace service
