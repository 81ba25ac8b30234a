#include "service/connection_jobs.h"

#include <exception>
#include <string_view>

#include "service/api_envelope.h"
#include "service/connection_messages.h"
#include "settings/server_address.h"
#include "settings/settings.h"
#include "text/strings.h"
#include "text/utf8.h"

namespace service {
namespace {

using settings::ConnectionInForce;
using settings::GrantedConnection;
using settings::Settings;

constexpr std::wstring_view kRefusedPrefix = L"Connection authorization failed: ";
constexpr std::wstring_view kGrantedPrefix = L"连接授权成功：";
constexpr std::wstring_view kGrantedAddress = L"，分配地址 ";
constexpr std::wstring_view kGrantedRoutes = L"，路由 ";
constexpr std::wstring_view kDisconnected = L"\r\n远程调试会话已断开。";
constexpr std::wstring_view kReportFailedPrefix = L"\r\n会话断开上报失败：";
constexpr std::wstring_view kDiscoveryOn = L"\r\n局域网发现模式已开启";
constexpr std::wstring_view kDiscoveryOff = L"\r\n局域网发现模式已关闭：只转发已知 IP 网段。";
constexpr std::wstring_view kErrorPrefix = L"Error: ";
constexpr std::wstring_view kUnknownError = L"Unknown error.";

void ClearConnection(Settings& settings) {
  settings.connectionId.clear();
  settings.assignedAddress.clear();
  settings.routesText.clear();
  settings.accessRoutesText.clear();
  settings.routeMappingsText.clear();
  settings.granted = {};
}

ApiEnvelope PostReport(const GrantedConnection& held, const ConnectionPorts& ports,
                       std::wstring_view reason) {
  const HttpResponse response =
      ports.sendJsonRequest(L"POST", DisconnectUrl(held.serverUrl, held.connectionId),
                            DisconnectBody(held.engineerId, reason));
  return ParseApiEnvelope(response.body);
}

std::wstring ReportDisconnect(const GrantedConnection& held, const ConnectionPorts& ports) {
  if (held.connectionId.empty()) return {};
  const ApiEnvelope envelope = PostReport(held, ports, kReasonEndedHere);
  if (envelope.success) return std::wstring(kDisconnected);
  return std::wstring(kReportFailedPrefix) + envelope.message;
}

// The local half of a disconnect; returns what it adds to the text.
std::wstring ForgetConnection(settings::JobSettings& job, const GrantedConnection& held,
                              const ConnectionPorts& ports) {
  std::wstring text = ports.removeProxyBypass(held.routes);
  if (!text.empty()) text.insert(0, text::kLineBreak);
  ClearConnection(job.record);
  job.record.targetNetwork = settings::kAllNetworks;
  job.Save();  // or a sudden end would have the service told once more
  return text;
}

void StoreGrant(Settings& settings, const ConnectionGrant& grant, const settings::JsonValue& data) {
  settings.connectionId = grant.connectionId;
  settings.assignedAddress = grant.assignedAddress;
  settings.routesText = text::Join(grant.routes, text::kLineBreak);
  settings.granted = {grant.connectionId, settings.serverUrl, settings.engineerId, grant.routes};

  settings::TakeJsonString(data, L"deviceNumber", settings.deviceNumber);
  settings::TakeJsonString(data, L"targetNetwork", settings.targetNetwork);
  settings.heartbeatMessage.clear();
}

tunnel::TunnelRequest MakeTunnelRequest(const Settings& settings) {
  tunnel::TunnelRequest request;
  request.serverUrl = settings::NormaliseServerUrl(settings.serverUrl);
  request.connectionId = settings.connectionId;
  request.engineerId = settings.engineerId;
  request.assignedAddress = settings.assignedAddress;
  request.routes = text::SplitLines(settings.routesText);
  request.discoveryMode = settings.discoveryModeEnabled;
  return request;
}

std::wstring StartTunnel(Settings& settings, tunnel::Tunnel& tunnel) {
  const tunnel::TunnelStarted started = tunnel.Start(MakeTunnelRequest(settings));
  settings.accessRoutesText = text::Join(started.accessRoutes, text::kLineBreak);
  settings.routeMappingsText = started.mappingText;

  std::wstring text = started.text;
  if (!settings.routeMappingsText.empty()) {
    text.append(text::kLineBreak).append(settings.routeMappingsText);
  }
  return text.append(settings.discoveryModeEnabled ? kDiscoveryOn : kDiscoveryOff);
}

std::wstring Connect(settings::JobSettings& job, tunnel::Tunnel& tunnel,
                     const ConnectionPorts& ports) {
  std::wstring text = DisconnectConnection(job, ports);
  text.append(text::kLineBreak).append(AuthorizeConnection(job, ports));
  if (job.record.connectionId.empty()) return text;
  return text.append(text::kLineBreak).append(StartTunnel(job.record, tunnel));
}

// For the clean-up after a failure, which is the one worth showing: a second one is dropped.
template <typename Action>
void Quietly(Action action) noexcept {
  try {
    action();
  } catch (...) {
  }
}

// Tells the service that what it granted came to nothing, and forgets it.
void GiveUpConnection(Settings& settings, const ConnectionPorts& ports) noexcept {
  if (ports.closing.stop_requested()) return;  // a report would not get out; the next run makes it
  const GrantedConnection held = ConnectionInForce(settings);
  if (!held.connectionId.empty()) {
    Quietly([&] { PostReport(held, ports, kReasonTunnelFailed); });
  }
  Quietly([&] { ports.removeProxyBypass(held.routes); });
  settings.connectionId.clear();
  settings.assignedAddress.clear();
  settings.routesText.clear();
  settings.granted = {};
}

}  // namespace

std::wstring AuthorizeConnection(settings::JobSettings& job, const ConnectionPorts& ports) {
  Settings& settings = job.record;
  if (settings.engineerId.empty()) settings.engineerId = settings::MakeEngineerId();

  const HttpResponse response = ports.sendJsonRequest(L"POST", AuthorizationUrl(settings.serverUrl),
                                                      AuthorizationBody(settings));
  const ApiEnvelope envelope = ParseApiEnvelope(response.body);
  if (!envelope.success) {
    settings.heartbeatMessage = envelope.code;
    return std::wstring(kRefusedPrefix) + envelope.message;
  }

  const ConnectionGrant grant = ReadConnectionGrant(envelope.data);
  StoreGrant(settings, grant, envelope.data);
  job.Save();                          // a run that ends here must find the routes again
  ports.addProxyBypass(grant.routes);  // its report is of no interest here

  std::wstring text(kGrantedPrefix);
  text.append(settings.connectionId);
  text.append(kGrantedAddress).append(settings.assignedAddress);
  return text.append(kGrantedRoutes).append(settings.routesText);
}

std::wstring DisconnectConnection(settings::JobSettings& job, const ConnectionPorts& ports) {
  const GrantedConnection held = ConnectionInForce(job.record);
  std::wstring report;
  try {
    report = ReportDisconnect(held, ports);
  } catch (...) {
    ForgetConnection(job, held, ports);
    throw;
  }
  return report + ForgetConnection(job, held, ports);
}

std::wstring ConnectJob(settings::JobSettings& job, tunnel::Tunnel& tunnel,
                        const ConnectionPorts& ports) {
  std::wstring failure;
  try {
    return Connect(job, tunnel, ports);
  } catch (const std::exception& error) {
    failure = std::wstring(kErrorPrefix) + text::FromUtf8(error.what());
  } catch (...) {
    failure = kUnknownError;
  }
  GiveUpConnection(job.record, ports);
  return failure;
}

std::wstring StopJob(settings::JobSettings& job, tunnel::Tunnel& tunnel,
                     const ConnectionPorts& ports) {
  const std::wstring stopped = tunnel.Stop();
  return stopped + DisconnectConnection(job, ports);
}

}  // namespace service
