#include "tunnel/session.h"

#include <exception>
#include <stdexcept>
#include <utility>

#include "text/utf8.h"
#include "tunnel/driver/capture.h"
#include "tunnel/driver/windivert.h"
#include "tunnel/packets/ipv4.h"
#include "tunnel/relay/relay_threads.h"
#include "tunnel/relay/relay_url.h"

namespace tunnel {
namespace {

constexpr wchar_t kStartedText[] = L"工程师端软件隧道已启动：";
constexpr wchar_t kStoppedText[] = L"软件隧道已停止。";
constexpr wchar_t kWasNotRunningText[] = L"软件隧道运行中。";

constexpr wchar_t kNetworksUnknown[] = L"警告：无法读取本机网络列表（错误 ";
constexpr wchar_t kNetworksUnknownEffect[] =
    L"），现场网段若与本机网段相同将无法访问；请断开后重新连接。";
constexpr wchar_t kDiscoveryPaused[] = L"局域网发现已暂停：中继恢复前不截取本机的广播。";
constexpr wchar_t kDiscoveryResumed[] = L"局域网发现已恢复。";
constexpr wchar_t kNotPaused[] = L"警告：局域网发现未能暂停。";
constexpr wchar_t kNotResumed[] = L"警告：局域网发现未能恢复，请断开后重新连接。";
constexpr wchar_t kOverlap[] = L"警告：本机新接入的网段 ";
constexpr wchar_t kOverlapWith[] = L" 与现场访问网段 ";
constexpr wchar_t kOverlapCure[] =
    L" 重叠，现场设备可能无法访问；请断开后重新连接，以重新分配网段。";
constexpr wchar_t kFragmentCaptured[] =
    L"警告：遇到被分片的数据包，截取已停止，现在访问不到现场；"
    L"请点“断开”再点“连接”，并让发送它的软件改用更小的数据包。";

}  // namespace

Session::Session(SessionDeps deps)
    : deps_(std::move(deps)), link_(signal_, deps_.tickMs), udp_(deps_.makeUdpRelay(*this)) {}

Session::~Session() {
  if (IsRunning()) Stop();
}

TunnelStarted Session::Start(const TunnelRequest& request) {
  const platform::MutexLock held(threadLock_);
  if (IsRunning()) {
    // A second start replaces the running tunnel.
    TearDown();
    RemoveDriverService();
  }
  // Cleared before anything is opened, so that no stop from now on is missed.
  if (!signal_.TryClear()) ThrowIfStopped();
  plan_ = MakePlan(request);
  try {
    Prepare(request);
    plan_.relayUrl =
        BuildRelayUrl(request.serverUrl, BuildRelayPath(request.connectionId, request.engineerId));
    Open();
  } catch (...) {
    TearDown();
    RemoveDriverService();
    throw;
  }
  TunnelStarted started;
  started.text = kStartedText + request.connectionId;
  for (const RouteMapping& mapping : plan_.mappings) {
    started.accessRoutes.push_back(FormatNetwork(mapping.Mapped()));
  }
  started.mappingText = DescribeRoutes(plan_.mappings);
  return started;
}

Session::Plan Session::MakePlan(const TunnelRequest& request) {
  Plan plan;
  plan.mappings = BuildMappings(request);
  plan.filter = BuildCaptureFilter(plan.mappings, request.discoveryMode);
  plan.filterWithoutBroadcasts = BuildCaptureFilter(plan.mappings, false);
  plan.udpRequest = {request.serverUrl, request.connectionId, request.engineerId};
  return plan;
}

std::vector<RouteMapping> Session::BuildMappings(const TunnelRequest& request) {
  if (!ParseTunnelAddress(request.assignedAddress)) {
    throw std::runtime_error("Invalid assigned tunnel address.");
  }
  const LocalNetworks local = deps_.collectLocalNetworks();
  if (local.error != 0) {
    Notice(kNetworksUnknown + std::to_wstring(local.error) + kNetworksUnknownEffect);
  }
  std::vector<RouteMapping> mappings =
      BuildRouteMappings(ParseRoutes(request.routes), local.networks);
  if (mappings.empty()) throw std::runtime_error("No valid target routes were configured.");
  return mappings;
}

void Session::Prepare(const TunnelRequest& request) {
  // Everything that an earlier tunnel may have left is reset before a thread can see it.
  driver_.Load(deps_.loadDriver());
  link_.ClearConnected();
  link_.SetLastError({});
  queue_.Start();
  watch_.Start();
  path_.Configure(ParseTunnelAddress(request.assignedAddress).value(), plan_.mappings,
                  request.discoveryMode);
}

// A stop closes everything that is open at that moment. The check before each step keeps the start
// from opening more.
void Session::Open() {
  ThrowIfStopped();
  link_.Connect(plan_.relayUrl);
  flags_.running = true;
  ThrowIfStopped();
  udp_->StartUdpRelay(plan_.udpRequest);
  ThrowIfStopped();
  // The capture opens after the relay: from then on packets for the site no longer take their usual
  // way.
  OpenDriver();
  StartThreads();
  // A stop may have closed its handles just before they were opened; the caller closes them again.
  ThrowIfStopped();
}

// Another program that used the driver, or an earlier run, may have left its service disabled or
// half deleted. Stopping the service is enough to clear that.
void Session::OpenDriver() {
  try {
    driver_.OpenCapture(plan_.filter);
  } catch (const DriverError& error) {
    if (!IsDriverLeftover(error.Code())) throw;
    RemoveDriverService();
    ThrowIfStopped();
    driver_.OpenCapture(plan_.filter);
  }
  driver_.OpenInject();
}

void Session::StartThreads() {
  threads_.emplace_back([this]() noexcept { RunCapture(); });
  threads_.emplace_back([this]() noexcept {
    RelayWorker(*this, link_, *udp_, plan_.relayUrl, plan_.udpRequest).Run();
  });
  threads_.emplace_back([this]() noexcept { SenderLoop(flags_, queue_, link_, *udp_); });
  threads_.emplace_back([this]() noexcept {
    std::set<std::wstring> warned;
    watch_.Run([&]() { WarnOfOverlaps(warned); });
  });
}

void Session::RunCapture() noexcept {
  if (CaptureLoop(flags_, driver_, path_) != CaptureEnd::ByFragment) return;
  try {
    Notice(kFragmentCaptured);
  } catch (const std::exception&) {
    // Out of memory; the tunnel continues without the line.
  }
}

void Session::HandleInbound(std::span<std::byte> packet) noexcept {
  try {
    path_.HandleInbound(packet);
  } catch (const std::exception&) {
    // The driver refused this packet; the next may pass.
  }
}

void Session::OnReconnectFailed(const std::string& reason) {
  const platform::MutexLock held(observerLock_);
  observer_.reconnectFailed(reason);
}

void Session::OnUdpChanged(bool ready) {
  const platform::MutexLock held(observerLock_);
  observer_.udpChanged(ready);
}

void Session::OnLinkChanged(bool connected) {
  // A hurry from the attempt that has just succeeded must not shorten the next outage's first wait.
  if (connected) signal_.ForgetHurry();
  {
    const platform::MutexLock held(observerLock_);
    observer_.linkChanged(connected);
  }
  // After the report and outside the observer lock, which its own notice takes.
  SwitchDiscovery(connected);
}

// While the relay is away, this computer keeps its own broadcasts. One of them may be its request
// for an address, and without an address the relay could never come back.
void Session::SwitchDiscovery(bool connected) {
  if (plan_.filter == plan_.filterWithoutBroadcasts) return;
  try {
    if (driver_.ReplaceCapture(connected ? plan_.filter : plan_.filterWithoutBroadcasts)) {
      Notice(connected ? kDiscoveryResumed : kDiscoveryPaused);
    }
  } catch (const std::exception& error) {
    // The old filter stays in force.
    Notice((connected ? kNotResumed : kNotPaused) + text::FromUtf8(error.what()));
  }
}

// Warns once per pair of networks; `warned` holds the lines so far.
void Session::WarnOfOverlaps(std::set<std::wstring>& warned) noexcept {
  try {
    const LocalNetworks local = deps_.collectLocalNetworks();
    for (const RouteOverlap& overlap : FindOverlaps(plan_.mappings, local.networks)) {
      const std::wstring line = kOverlap + FormatNetwork(overlap.local) + kOverlapWith +
                                FormatNetwork(overlap.mapped) + kOverlapCure;
      if (warned.insert(line).second) Notice(line);
    }
  } catch (const std::exception&) {
    // Out of memory; the next check may succeed.
  }
}

void Session::Notice(const std::wstring& line) {
  const platform::MutexLock held(observerLock_);
  observer_.notice(line);
}

void Session::Observe(TunnelObserver observer) {
  const platform::MutexLock held(observerLock_);
  observer_ = std::move(observer);
}

void Session::ThrowIfStopped() const {
  if (signal_.IsSet()) throw std::runtime_error("The tunnel was stopped while it started.");
}

std::wstring Session::Stop() {
  // Without the thread lock, which a start in progress holds: this is what ends that start.
  signal_.Request();
  const bool wasRunning = InterruptAll();
  const platform::MutexLock held(threadLock_);
  TearDown();
  signal_.Settle();
  // After the teardown: a service stopped while handles are open refuses the next with error 1058.
  RemoveDriverService();
  return wasRunning ? kStoppedText : kWasNotRunningText;
}

// The request is never settled, so no later start can clear it.
void Session::StopForGood() {
  signal_.Request();
  Stop();
}

// Wakes every thread of the tunnel, including a starting one; true if the tunnel was running. The
// stop must already be requested, or a loop could reopen what this closes.
bool Session::InterruptAll() noexcept {
  const bool wasRunning = flags_.running.exchange(false);
  driver_.CloseHandles();
  link_.Close();
  udp_->Close();
  queue_.Stop();
  watch_.Stop();
  return wasRunning;
}

void Session::EndThreads() noexcept {
  for (std::thread& thread : threads_) thread.join();
  threads_.clear();
  // A reconnect may have opened it again after InterruptAll().
  udp_->Close();
  udp_->Join();
}

void Session::TearDown() noexcept {
  // A failed start comes here without a stop; its threads must end all the same.
  signal_.Request();
  InterruptAll();
  EndThreads();
  link_.Release();
  // Only now: until the threads have ended, they may call into the library.
  driver_.Unload();
  link_.ClearConnected();
  path_.ClearFlows();
  queue_.Clear();
  signal_.Settle();
}

void Session::RemoveDriverService() noexcept {
  tunnel::RemoveDriverService(deps_.runHidden);
}

}  // namespace tunnel
