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
    : deps_(std::move(deps)),
      link_(signal_, deps_.tickMs),
      udp_(deps_.makeUdpRelay(HooksForUdp())) {}

UdpRelayHooks Session::HooksForUdp() {
  UdpRelayHooks hooks;
  hooks.inbound = [this](std::span<std::byte> packet) {
    try {
      path_.HandleInbound(packet);
    } catch (const std::exception&) {
      // Costs this packet only.
    }
  };
  hooks.keepGoing = [this]() { return flags_.KeepGoing(); };
  hooks.readyChanged = [this](bool ready) {
    const platform::MutexLock held(observerLock_);
    observer_.udpChanged(ready);
  };
  return hooks;
}

Session::~Session() {
  if (IsRunning()) Stop();
}

TunnelStarted Session::Start(const TunnelRequest& request) {
  const platform::MutexLock held(threadLock_);
  if (IsRunning()) {
    TearDown();
    RemoveDriverService();
  }
  // Cleared here and not when opening begins, so that a stop from now on is never overlooked.
  if (!signal_.TryClear()) ThrowIfStopped();
  Plan plan;
  plan.mappings = BuildMappings(request);
  plan.filter = BuildCaptureFilter(plan.mappings, request.discoveryMode);
  plan.filterWithoutBroadcasts = BuildCaptureFilter(plan.mappings, false);
  plan.udpRequest = {request.serverUrl, request.connectionId, request.engineerId};
  try {
    Prepare(request, plan.mappings);
    plan.relayUrl =
        BuildRelayUrl(request.serverUrl, BuildRelayPath(request.connectionId, request.engineerId));
    Open(plan);
  } catch (...) {
    TearDown();
    RemoveDriverService();
    throw;
  }
  TunnelStarted started;
  started.text = kStartedText + request.connectionId;
  for (const RouteMapping& mapping : plan.mappings) {
    started.accessRoutes.push_back(FormatNetwork(mapping.Mapped()));
  }
  started.mappingText = DescribeRoutes(plan.mappings);
  return started;
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

void Session::Prepare(const TunnelRequest& request, const std::vector<RouteMapping>& mappings) {
  driver_.Load(deps_.loadDriver());
  link_.ClearConnected();
  link_.SetLastError({});
  queue_.Start();
  watch_.Start();
  path_.Configure(ParseTunnelAddress(request.assignedAddress).value(), mappings,
                  request.discoveryMode);
}

void Session::Open(const Plan& plan) {
  ThrowIfStopped();
  link_.Connect(plan.relayUrl);
  flags_.running = true;
  ThrowIfStopped();
  udp_->StartUdpRelay(plan.udpRequest);
  ThrowIfStopped();
  OpenDriver(plan.filter);
  StartThreads(plan);
  // What a stop closed before it was opened here, the caller closes again.
  ThrowIfStopped();
}

// Another program that has used the driver, or an earlier run, may have left its service disabled
// or half deleted; stopping it is all that this needs.
void Session::OpenDriver(const std::wstring& filter) {
  try {
    driver_.OpenCapture(filter);
  } catch (const DriverError& error) {
    if (!IsDriverLeftover(error.Code())) throw;
    RemoveDriverService();
    ThrowIfStopped();
    driver_.OpenCapture(filter);
  }
  driver_.OpenInject();
}

void Session::StartThreads(const Plan& plan) {
  threads_.emplace_back([this]() noexcept { RunCapture(); });
  threads_.emplace_back(
      [worker = RelayWorker(MakeRelayWork(plan))]() mutable noexcept { worker.Run(); });
  threads_.emplace_back([this]() noexcept { SenderLoop(flags_, queue_, link_, *udp_); });
  threads_.emplace_back([this, plan]() noexcept {
    std::set<std::wstring> told;
    watch_.Run([&]() { WarnOfOverlaps(plan, told); });
  });
}

void Session::RunCapture() noexcept {
  if (CaptureLoop(flags_, driver_, path_) != CaptureEnd::ByFragment) return;
  try {
    Notice(kFragmentCaptured);
  } catch (const std::exception&) {
    // Short memory; the tunnel goes on without the line.
  }
}

RelayWork Session::MakeRelayWork(const Plan& plan) {
  return {flags_,
          link_,
          *udp_,
          plan.relayUrl,
          plan.udpRequest,
          [this](std::span<std::byte> packet) { path_.HandleInbound(packet); },
          [this](std::chrono::milliseconds time) { deps_.pause(signal_, time); },
          [this, plan](bool connected) { OnLinkChanged(connected, plan); },
          [this](const std::string& reason) {
            const platform::MutexLock held(observerLock_);
            observer_.reconnectFailed(reason);
          }};
}

void Session::OnLinkChanged(bool connected, const Plan& plan) {
  if (connected) signal_.ForgetHurry();
  {
    const platform::MutexLock held(observerLock_);
    observer_.linkChanged(connected);
  }
  SwitchDiscovery(connected, plan);
}

// While the relay is away, the computer's broadcasts are its own: among them may be the one with
// which it asks for an address, and without an address the relay could never come back.
void Session::SwitchDiscovery(bool connected, const Plan& plan) {
  if (plan.filter == plan.filterWithoutBroadcasts) return;
  try {
    if (driver_.ReplaceCapture(connected ? plan.filter : plan.filterWithoutBroadcasts)) {
      Notice(connected ? kDiscoveryResumed : kDiscoveryPaused);
    }
  } catch (const std::exception& error) {
    // It captures as before.
    Notice((connected ? kNotResumed : kNotPaused) + text::FromUtf8(error.what()));
  }
}

// Each pair of networks is told once; `told` keeps the lines.
void Session::WarnOfOverlaps(const Plan& plan, std::set<std::wstring>& told) noexcept {
  try {
    const LocalNetworks local = deps_.collectLocalNetworks();
    for (const RouteOverlap& overlap : FindOverlaps(plan.mappings, local.networks)) {
      const std::wstring line = kOverlap + FormatNetwork(overlap.local) + kOverlapWith +
                                FormatNetwork(overlap.mapped) + kOverlapCure;
      if (told.insert(line).second) Notice(line);
    }
  } catch (const std::exception&) {
    // Short memory; the next look may find it.
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
  // Without the thread lock: a start under way holds it, and this is what ends that start.
  signal_.Request();
  const bool wasRunning = InterruptAll();
  const platform::MutexLock held(threadLock_);
  TearDown();
  signal_.Settle();
  RemoveDriverService();
  return wasRunning ? kStoppedText : kWasNotRunningText;
}

// A request that is never settled: no start clears it.
void Session::StopForGood() {
  signal_.Request();
  Stop();
}

// Wakes every thread of the tunnel, a starting one too; true when the tunnel was running. A stop
// has been asked for already, so nothing that ends here is begun again.
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
  // A reconnect may have opened it after it was closed.
  udp_->Close();
  udp_->Join();
}

void Session::TearDown() noexcept {
  signal_.Request();
  InterruptAll();
  EndThreads();
  link_.Release();
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
