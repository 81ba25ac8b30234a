#include "service/connection_jobs.h"

#include <exception>
#include <string_view>

#include "service/api_envelope.h"
#include "service/connection_messages.h"
#include "settings/engineer_id.h"
#include "settings/server_address.h"
#include "text/strings.h"
#include "text/utf8.h"

namespace service {
namespace {

using settings::Settings;

constexpr std::wstring_view kLineBreak = L"\r\n";

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
}

ApiEnvelope PostReport(const Settings& settings, const ConnectionPorts& ports,
                       std::wstring_view reason) {
  const HttpResponse response =
      ports.sendJsonRequest(L"POST", DisconnectUrl(settings.serverUrl, settings.connectionId),
                            DisconnectBody(settings.engineerId, reason));
  return ParseApiEnvelope(response.body);
}

std::wstring ReportDisconnect(const Settings& settings, const ConnectionPorts& ports) {
  if (settings.connectionId.empty()) return {};
  const ApiEnvelope envelope = PostReport(settings, ports, kReasonEndedHere);
  if (envelope.success) return std::wstring(kDisconnected);
  return std::wstring(kReportFailedPrefix) + envelope.message;
}

// The local half of a disconnect; returns what it adds to the text.
std::wstring ForgetConnection(Settings& settings, const ConnectionPorts& ports) {
  std::wstring text = ports.removeProxyBypass(text::SplitLines(settings.routesText));
  if (!text.empty()) text.insert(0, kLineBreak);
  ClearConnection(settings);
  settings.targetNetwork = settings::kAllNetworks;
  ports.saveSettings(settings);
  return text;
}

void StoreGrant(Settings& settings, const ConnectionGrant& grant, const settings::JsonValue& data) {
  settings.connectionId = grant.connectionId;
  settings.assignedAddress = grant.assignedAddress;
  settings.routesText = text::Join(grant.routes, kLineBreak);

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
  settings.accessRoutesText = text::Join(started.accessRoutes, kLineBreak);
  settings.routeMappingsText = started.mappingText;

  std::wstring text = started.text;
  if (!settings.routeMappingsText.empty()) {
    text.append(kLineBreak).append(settings.routeMappingsText);
  }
  return text.append(settings.discoveryModeEnabled ? kDiscoveryOn : kDiscoveryOff);
}

std::wstring Connect(Settings& settings, tunnel::Tunnel& tunnel, const ConnectionPorts& ports) {
  std::wstring text = DisconnectConnection(settings, ports);
  ClearConnection(settings);
  text.append(kLineBreak).append(AuthorizeConnection(settings, ports));
  if (settings.connectionId.empty()) return text;

  text.append(kLineBreak).append(StartTunnel(settings, tunnel));
  ports.saveSettings(settings);
  return text;
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
  if (!settings.connectionId.empty()) {
    Quietly([&] { PostReport(settings, ports, kReasonTunnelFailed); });
  }
  Quietly([&] { ports.removeProxyBypass(text::SplitLines(settings.routesText)); });
  settings.connectionId.clear();
  settings.assignedAddress.clear();
  settings.routesText.clear();
  Quietly([&] { ports.saveSettings(settings); });
}

}  // namespace

std::wstring AuthorizeConnection(Settings& settings, const ConnectionPorts& ports) {
  if (settings.engineerId.empty()) settings.engineerId = settings::MakeEngineerId();

  const HttpResponse response = ports.sendJsonRequest(L"POST", AuthorizationUrl(settings.serverUrl),
                                                      AuthorizationBody(settings));
  const ApiEnvelope envelope = ParseApiEnvelope(response.body);
  if (!envelope.success) {
    settings.heartbeatMessage = envelope.code;
    ports.saveSettings(settings);
    return std::wstring(kRefusedPrefix) + envelope.message;
  }

  const ConnectionGrant grant = ReadConnectionGrant(envelope.data);
  StoreGrant(settings, grant, envelope.data);
  ports.saveSettings(settings);        // a run that ends here must find the routes again
  ports.addProxyBypass(grant.routes);  // its report is of no interest here
  ports.saveSettings(settings);

  std::wstring text(kGrantedPrefix);
  text.append(settings.connectionId);
  text.append(kGrantedAddress).append(settings.assignedAddress);
  return text.append(kGrantedRoutes).append(settings.routesText);
}

std::wstring DisconnectConnection(Settings& settings, const ConnectionPorts& ports) {
  std::wstring report;
  try {
    report = ReportDisconnect(settings, ports);
  } catch (...) {
    ForgetConnection(settings, ports);
    throw;
  }
  return report + ForgetConnection(settings, ports);
}

std::wstring ConnectJob(Settings& settings, tunnel::Tunnel& tunnel, const ConnectionPorts& ports) {
  std::wstring failure;
  try {
    return Connect(settings, tunnel, ports);
  } catch (const std::exception& error) {
    failure = std::wstring(kErrorPrefix) + text::FromUtf8(error.what());
  } catch (...) {
    failure = kUnknownError;
  }
  GiveUpConnection(settings, ports);
  return failure;
}

std::wstring StopJob(Settings& settings, tunnel::Tunnel& tunnel, const ConnectionPorts& ports) {
  const std::wstring stopped = tunnel.Stop();
  return stopped + DisconnectConnection(settings, ports);
}

}  // namespace service
