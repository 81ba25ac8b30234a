#include "tunnel/session.h"

#include <exception>
#include <stdexcept>
#include <utility>

#include "tunnel/capture_filter.h"
#include "tunnel/capture_loop.h"
#include "tunnel/ipv4.h"
#include "tunnel/packet_sender.h"
#include "tunnel/relay_url.h"

namespace tunnel {
namespace {

constexpr wchar_t kStartedText[] = L"工程师端软件隧道已启动：";
constexpr wchar_t kStoppedText[] = L"软件隧道已停止。";
constexpr wchar_t kWasNotRunningText[] = L"软件隧道运行中。";

// The kernel service goes by the first name in 2.x of the driver, by the second in older ones.
constexpr const wchar_t* kServiceCommands[] = {L"sc stop WinDivert64", L"sc delete WinDivert64",
                                               L"sc stop WinDivert", L"sc delete WinDivert"};
constexpr std::chrono::milliseconds kCommandWait{5000};

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
  const std::vector<RouteMapping> mappings = BuildMappings(request);
  const std::wstring filter = BuildCaptureFilter(mappings, request.discoveryMode);
  try {
    Prepare(request, mappings);
    const std::wstring relayUrl =
        BuildRelayUrl(request.serverUrl, BuildRelayPath(request.connectionId, request.engineerId));
    Open(request, filter, relayUrl);
  } catch (...) {
    TearDown();
    RemoveDriverService();
    throw;
  }
  TunnelStarted started;
  started.text = kStartedText + request.connectionId;
  for (const RouteMapping& mapping : mappings) {
    started.accessRoutes.push_back(FormatNetwork(mapping.Mapped()));
  }
  started.mappingText = DescribeRoutes(mappings);
  return started;
}

std::vector<RouteMapping> Session::BuildMappings(const TunnelRequest& request) const {
  if (!ParseTunnelAddress(request.assignedAddress)) {
    throw std::runtime_error("Invalid assigned tunnel address.");
  }
  std::vector<RouteMapping> mappings =
      BuildRouteMappings(ParseRoutes(request.routes), deps_.collectLocalNetworks());
  if (mappings.empty()) throw std::runtime_error("No valid target routes were configured.");
  return mappings;
}

void Session::Prepare(const TunnelRequest& request, const std::vector<RouteMapping>& mappings) {
  driver_.Load(deps_.loadDriver());
  link_.ClearConnected();
  link_.SetLastError({});
  queue_.Start();
  path_.Configure(ParseTunnelAddress(request.assignedAddress).value(), mappings,
                  request.discoveryMode);
}

void Session::Open(const TunnelRequest& request, const std::wstring& filter,
                   const std::wstring& relayUrl) {
  const UdpRelayRequest udpRequest{request.serverUrl, request.connectionId, request.engineerId};
  ThrowIfStopped();
  link_.Connect(relayUrl);
  flags_.running = true;
  ThrowIfStopped();
  udp_->StartUdpRelay(udpRequest);
  ThrowIfStopped();
  driver_.OpenCapture(filter);
  driver_.OpenInject();
  StartThreads(relayUrl, udpRequest);
  // What a stop closed before it was opened here, the caller closes again.
  ThrowIfStopped();
}

void Session::StartThreads(const std::wstring& relayUrl, const UdpRelayRequest& udpRequest) {
  threads_.emplace_back([this]() noexcept { CaptureLoop(flags_, driver_, path_); });
  threads_.emplace_back([worker = RelayWorker(MakeRelayWork(
                             relayUrl, udpRequest))]() mutable noexcept { worker.Run(); });
  threads_.emplace_back([this]() noexcept { SenderLoop(flags_, queue_, link_, *udp_); });
}

RelayWork Session::MakeRelayWork(const std::wstring& relayUrl, const UdpRelayRequest& udpRequest) {
  return {flags_,
          link_,
          *udp_,
          relayUrl,
          udpRequest,
          [this](std::span<std::byte> packet) { path_.HandleInbound(packet); },
          [this](std::chrono::milliseconds time) { deps_.pause(signal_, time); },
          [this](bool connected) {
            const platform::MutexLock held(observerLock_);
            observer_.linkChanged(connected);
          },
          [this](const std::string& reason) {
            const platform::MutexLock held(observerLock_);
            observer_.reconnectFailed(reason);
          }};
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
  for (const wchar_t* const command : kServiceCommands) {
    try {
      deps_.runHidden(command, kCommandWait);
    } catch (const std::exception&) {
      // What cannot be started is skipped; the next may work.
    }
  }
}

}  // namespace tunnel
