#include "service/service_jobs.h"

#include <exception>
#include <string_view>
#include <utility>

#include "service/api_messages.h"
#include "settings/json.h"
#include "settings/server_address.h"
#include "settings/settings.h"
#include "text/page_texts.h"
#include "text/strings.h"

namespace service {
namespace {

using settings::ConnectionInForce;
using settings::GrantedConnection;
using settings::Settings;
using text::kGrantedPrefix;
using text::kNotResolvedPrefix;
using text::kRefusedPrefix;

constexpr std::wstring_view kGrantedAddress = L"，分配地址 ";
constexpr std::wstring_view kGrantedRoutes = L"，路由 ";
constexpr std::wstring_view kDisconnected = L"\r\n远程调试会话已断开。";
constexpr std::wstring_view kReportFailedPrefix = L"\r\n会话断开上报失败：";
constexpr std::wstring_view kDiscoveryOn = L"\r\n局域网发现模式已开启";
constexpr std::wstring_view kDiscoveryOff = L"\r\n局域网发现模式已关闭：只转发已知 IP 网段。";
constexpr std::wstring_view kResolvePath = L"/api/devices/resolve";
constexpr std::wstring_view kResolvedPrefix = L"已获取现场端 ";
constexpr std::wstring_view kResolvedSuffix = L" 的共享网段。";

void ClearConnection(Settings& settings) {
  settings.connectionId.clear();
  settings.assignedAddress.clear();
  settings.routesText.clear();
  settings.accessRoutesText.clear();
  settings.routeMappingsText.clear();
  settings.granted = {};
}

ApiEnvelope PostReport(const GrantedConnection& held, const JsonRequester& sendJsonRequest,
                       std::wstring_view reason) {
  const HttpResponse response =
      sendJsonRequest(L"POST", DisconnectUrl(held.serverUrl, held.connectionId),
                      DisconnectBody(held.engineerId, reason));
  return ParseApiEnvelope(response.body);
}

void StoreGrant(Settings& settings, const ConnectionGrant& grant, const settings::JsonValue& data) {
  settings.connectionId = grant.connectionId;
  settings.assignedAddress = grant.assignedAddress;
  settings.routesText = text::Join(grant.routes, text::kLineBreak);
  settings.granted = {grant.connectionId, settings.serverUrl, settings.engineerId, grant.routes};

  settings::TakeJsonString(data, L"deviceNumber", settings.deviceNumber);
  settings::TakeJsonString(data, L"targetNetwork", settings.targetNetwork);
  // An earlier refusal no longer applies and must not cause a retry.
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

// For cleaning up after a failure: the first failure is the one to show, a second is dropped.
template <typename Action>
void IgnoringFailure(Action action) noexcept {
  try {
    action();
  } catch (...) {
  }
}

void TakeNetworks(const settings::JsonValue& data, Settings& settings) {
  const std::vector<std::wstring> networks = settings::JsonStringsOf(data, L"sharedNetworks");
  // The previous networks are better than none.
  if (networks.empty()) return;
  settings.routesText = text::Join(networks, text::kLineBreak);
  settings.targetNetwork = networks.front();
}

}  // namespace

ConnectionJobs::ConnectionJobs(JsonRequester sendJsonRequest, ProxyBypassEdit editProxyBypass,
                               std::stop_token closing)
    : sendJsonRequest_(std::move(sendJsonRequest)),
      editProxyBypass_(std::move(editProxyBypass)),
      closing_(std::move(closing)) {}

std::wstring ConnectionJobs::ReportDisconnect(const GrantedConnection& held) const {
  if (held.connectionId.empty()) return {};
  const ApiEnvelope envelope = PostReport(held, sendJsonRequest_, kReasonEndedHere);
  if (envelope.success) return std::wstring(kDisconnected);
  return std::wstring(kReportFailedPrefix) + envelope.message;
}

// The local half of a disconnect.
std::wstring ConnectionJobs::ForgetConnection(settings::JobSettings& job,
                                              const GrantedConnection& held) const {
  std::wstring text = editProxyBypass_(ProxyBypassChange::Remove, held.routes);
  if (!text.empty()) text.insert(0, text::kLineBreak);
  ClearConnection(job.record);
  job.record.targetNetwork = settings::kAllNetworks;
  job.Save();  // otherwise, after a sudden end, the next run would report this end again
  return text;
}

std::wstring ConnectionJobs::Authorize(settings::JobSettings& job) const {
  Settings& settings = job.record;
  if (settings.engineerId.empty()) settings.engineerId = settings::MakeEngineerId();

  const HttpResponse response =
      sendJsonRequest_(L"POST", AuthorizationUrl(settings.serverUrl), AuthorizationBody(settings));
  const ApiEnvelope envelope = ParseApiEnvelope(response.body);
  if (!envelope.success) {
    // The window decides by this code whether to ask again.
    settings.heartbeatMessage = envelope.code;
    return std::wstring(kRefusedPrefix) + envelope.message;
  }

  const ConnectionGrant grant = ReadConnectionGrant(envelope.data);
  StoreGrant(settings, grant, envelope.data);
  // Saved first: if the program ends while the proxy list is edited, the next run must know which
  // routes to take off it. The list's own report is not shown here.
  job.Save();
  editProxyBypass_(ProxyBypassChange::Add, grant.routes);

  std::wstring text(kGrantedPrefix);
  text.append(settings.connectionId);
  text.append(kGrantedAddress).append(settings.assignedAddress);
  return text.append(kGrantedRoutes).append(settings.routesText);
}

std::wstring ConnectionJobs::Disconnect(settings::JobSettings& job) const {
  const GrantedConnection held = ConnectionInForce(job.record);
  std::wstring report;
  try {
    report = ReportDisconnect(held);
  } catch (...) {  // the engineer has ended the connection, whether or not the service knows
    ForgetConnection(job, held);
    throw;
  }
  return report + ForgetConnection(job, held);
}

std::wstring ConnectionJobs::DisconnectAndConnect(settings::JobSettings& job,
                                                  tunnel::Tunnel& tunnel) const {
  std::wstring text = Disconnect(job);
  text.append(text::kLineBreak).append(Authorize(job));
  // Refused; the text has the reason.
  if (job.record.connectionId.empty()) return text;
  return text.append(text::kLineBreak).append(StartTunnel(job.record, tunnel));
}

// Reports that the tunnel failed, if the service granted a connection, and clears the connection.
void ConnectionJobs::GiveUpConnection(Settings& settings) const noexcept {
  // A closing program's requests fail at once, so the next run makes the report instead.
  if (closing_.stop_requested()) return;
  const GrantedConnection held = ConnectionInForce(settings);
  if (!held.connectionId.empty()) {
    IgnoringFailure([&] { PostReport(held, sendJsonRequest_, kReasonTunnelFailed); });
  }
  IgnoringFailure([&] { editProxyBypass_(ProxyBypassChange::Remove, held.routes); });
  settings.connectionId.clear();
  settings.assignedAddress.clear();
  settings.routesText.clear();
  settings.granted = {};
}

std::wstring ConnectionJobs::Connect(settings::JobSettings& job, tunnel::Tunnel& tunnel) const {
  std::exception_ptr failure;
  try {
    return DisconnectAndConnect(job, tunnel);
  } catch (...) {
    // Kept, so that the clean-up runs outside the handler and cannot replace it.
    failure = std::current_exception();
  }
  GiveUpConnection(job.record);
  return JobFailureLine(failure);
}

std::wstring ConnectionJobs::Stop(settings::JobSettings& job, tunnel::Tunnel& tunnel) const {
  // The tunnel first: the service expects the report after the relay connection has ended.
  const std::wstring stopped = tunnel.Stop();
  return stopped + Disconnect(job);
}

bool ResolveDevice(Settings& settings, const JsonRequester& sendJsonRequest, std::wstring& text) {
  std::wstring url = settings::NormaliseServerUrl(settings.serverUrl);
  url.append(kResolvePath);
  std::wstring body = L"{\"deviceSecret\":";
  body.append(settings::QuoteJsonString(settings.deviceSecret)).append(L"}");
  const ApiEnvelope envelope = ParseApiEnvelope(sendJsonRequest(L"POST", url, body).body);
  if (!envelope.success) {
    text = kNotResolvedPrefix;
    text.append(envelope.message);
    return false;
  }
  settings::TakeJsonString(envelope.data, L"deviceNumber", settings.deviceNumber);
  TakeNetworks(envelope.data, settings);
  settings::TakeJsonString(envelope.data, L"deviceName", settings.deviceName);
  if (settings.profileName.empty()) {
    settings.profileName =
        settings.deviceName.empty() ? settings.deviceNumber : settings.deviceName;
  }
  text = kResolvedPrefix;
  text.append(settings.deviceNumber).append(kResolvedSuffix);
  return true;
}

}  // namespace service
