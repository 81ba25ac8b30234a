#pragma once

#include <functional>
#include <stop_token>
#include <string>
#include <vector>

#include "service/http_transport.h"
#include "settings/settings_store.h"
#include "tunnel/tunnel.h"

// The jobs that talk to the central service about a device and its connection. All block, and each
// works on the job's own copy of the settings.
namespace service {

// Edits the system's proxy bypass list and returns the line for the log, or an empty text.
enum class ProxyBypassChange { Add, Remove };
using ProxyBypassEdit =
    std::function<std::wstring(ProxyBypassChange change, const std::vector<std::wstring>& routes)>;

// Connects to a device and disconnects from it. Ending a connection always uses the grant in force:
// the service that gave it, the engineer who asked for it, and its own routes.
//
// Threads: the one worker thread. Keeps no state between calls.
class ConnectionJobs {
 public:
  // `closing` is requested when the program ends.
  ConnectionJobs(JsonRequester sendJsonRequest, ProxyBypassEdit editProxyBypass,
                 std::stop_token closing);

  // Asks the service for a connection, stores the grant in `job` and saves it before the proxy list
  // is edited. Returns the line for the log. A refusal is such a line too; its code is kept in
  // heartbeatMessage. Throws std::runtime_error for transport failures and unusable replies; only a
  // newly made engineerId has changed then.
  std::wstring Authorize(settings::JobSettings& job) const;

  // Reports the end of the connection, if there is one, and in every case clears it locally, sets
  // targetNetwork to "ALL" and saves. Each line of the returned text begins with CRLF; a refused
  // report is such a line. Throws std::runtime_error when no usable reply arrives, but only after
  // clearing and saving: a connection that the engineer has ended must never survive here.
  std::wstring Disconnect(settings::JobSettings& job) const;

  // Disconnects, authorises and starts the tunnel. Since disconnecting sets targetNetwork to "ALL",
  // the job always requests every shared network. Does not throw: a failure is reported to the
  // service (when there is a connection id), the connection is cleared, and the text is that of
  // JobFailureLine(). If the program is closing, a granted connection stays in the settings
  // instead, as after any closed window; the next connect reports its end.
  std::wstring Connect(settings::JobSettings& job, tunnel::Tunnel& tunnel) const;

  // Stops the tunnel, then disconnects. Returns both texts. Throws as Disconnect() does, with the
  // tunnel stopped.
  std::wstring Stop(settings::JobSettings& job, tunnel::Tunnel& tunnel) const;

 private:
  std::wstring ReportDisconnect(const settings::GrantedConnection& held) const;
  std::wstring ForgetConnection(settings::JobSettings& job,
                                const settings::GrantedConnection& held) const;
  std::wstring DisconnectAndConnect(settings::JobSettings& job, tunnel::Tunnel& tunnel) const;
  void GiveUpConnection(settings::Settings& settings) const noexcept;

  JsonRequester sendJsonRequest_;
  ProxyBypassEdit editProxyBypass_;
  std::stop_token closing_;
};

// Over WinHTTP and the system's proxy list. Requests end when `closing` is requested. Windows only.
ConnectionJobs RealConnectionJobs(const std::stop_token& closing);

// Asks the service which device the access key belongs to and which networks it shares, and copies
// the answer into the settings. Returns whether the service knew the key; `text` is the line for
// the log either way. A refusal changes nothing. Throws std::runtime_error for transport failures
// and malformed replies, with nothing changed. Any thread.
bool ResolveDevice(settings::Settings& settings, const JsonRequester& sendJsonRequest,
                   std::wstring& text);

}  // namespace service
