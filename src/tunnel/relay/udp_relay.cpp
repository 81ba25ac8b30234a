#include "tunnel/relay/udp_relay.h"

#include <array>
#include <cassert>
#include <exception>
#include <utility>

#include "tunnel/packets/packet.h"
#include "tunnel/relay/udp_datagram.h"

namespace tunnel {
namespace {

using std::chrono::milliseconds;

constexpr int kAttempts = 4;
constexpr milliseconds kAttemptTime{900};
constexpr milliseconds kReceiveTimeout{2000};
constexpr milliseconds kErrorPause{20};
constexpr milliseconds kKeepAlivePeriod{15000};
constexpr milliseconds kLossTime{45000};

}  // namespace

UdpRelayDeps RealUdpRelayDeps() {
  return {[](const std::wstring& serverUrl, milliseconds timeout,
             const std::function<bool()>& isCancelled) {
            return std::make_shared<RelayDatagramSocket>(serverUrl, timeout, isCancelled);
          },
          []() {
            return std::chrono::duration_cast<milliseconds>(
                std::chrono::steady_clock::now().time_since_epoch());
          },
          [](platform::Condition& condition, platform::Mutex& mutex, milliseconds time)
              REQUIRES(mutex) { condition.WaitFor(mutex, time); }};
}

SocketUdpRelay::SocketUdpRelay(UdpRelayHooks hooks, UdpRelayDeps deps)
    : hooks_(std::move(hooks)), deps_(std::move(deps)) {}

SocketUdpRelay::~SocketUdpRelay() {
  Close();
  Join();
}

void SocketUdpRelay::StartUdpRelay(const UdpRelayRequest& request) {
  assert(threads_.empty());
  const DatagramSocketPointer socket =
      deps_.openSocket(request.serverUrl, kAttemptTime, [this] { return !hooks_.keepGoing(); });
  const auto hello = std::make_shared<const std::vector<std::byte>>(
      BuildHello(request.connectionId, request.engineerId));
  token_ = 0;  // an earlier path's means nothing to this one
  {
    // From here on Close() reaches the socket; a stop that came before shows in keepGoing.
    const platform::MutexLock held(udpLock_);
    socket_ = socket;
    hello_ = hello;
  }
  const std::optional<std::uint64_t> token = SayHello(*socket, hello);
  socket->SetReceiveTimeout(kReceiveTimeout);
  token_ = token.value_or(0);
  lastAcknowledgement_ = deps_.now();
  if (hooks_.keepGoing()) SetReady(token.has_value());
  threads_.emplace_back([this, socket]() noexcept { ReceiveLoop(*socket); });
  threads_.emplace_back([this]() noexcept { KeepAliveLoop(); });
}

// After a time-out at once, after any other error when a pause has passed; false when the path was
// closed meanwhile.
bool SocketUdpRelay::MayReceiveAgain(int error) {
  return platform::IsSocketTimeout(error) || WaitOut(kErrorPause);
}

// The token of the first acknowledgement.
std::optional<std::uint64_t> SocketUdpRelay::SayHello(DatagramSocket& socket, const Hello& hello) {
  for (int attempt = 0; attempt < kAttempts && hooks_.keepGoing(); ++attempt) {
    socket.Send(*hello);
    if (const auto token = AwaitAcknowledgement(socket)) return token;
  }
  return std::nullopt;
}

// Waits through one attempt's time, whatever else arrives or fails meanwhile.
std::optional<std::uint64_t> SocketUdpRelay::AwaitAcknowledgement(DatagramSocket& socket) {
  const milliseconds end = deps_.now() + kAttemptTime;
  std::array<std::byte, kMaxUdpDatagramBytes> buffer;
  for (milliseconds left = kAttemptTime; left.count() > 0; left = end - deps_.now()) {
    socket.SetReceiveTimeout(left);
    const platform::SocketResult received = socket.Receive(buffer);
    if (platform::IsSocketClosed(received.error) || !hooks_.keepGoing()) return std::nullopt;
    if (received.error == 0) {
      const auto token = ParseAcknowledgement(std::span(buffer).first(received.bytes));
      if (token) return token;
    } else if (!MayReceiveAgain(received.error)) {
      return std::nullopt;
    }
  }
  return std::nullopt;
}

void SocketUdpRelay::Close() noexcept {
  DatagramSocketPointer socket;
  {
    const platform::MutexLock held(udpLock_);
    socket = std::move(socket_);
    socket_ = nullptr;
    ready_ = false;
  }
  closed_.NotifyAll();
  if (socket != nullptr) socket->Close();
}

void SocketUdpRelay::Join() noexcept {
  for (std::thread& thread : threads_) thread.join();
  threads_.clear();
}

bool SocketUdpRelay::IsReady() const noexcept {
  return ready_ && HasRecentAcknowledgement();
}

bool SocketUdpRelay::SendUdpPacket(std::span<const std::byte> packet) {
  if (packet.size() > kMaxUdpPacketBytes) return false;
  DatagramSocketPointer socket;
  {
    const platform::MutexLock held(udpLock_);
    socket = socket_;
  }
  const std::uint64_t token = token_;
  if (socket == nullptr || token == 0) return false;
  std::array<std::byte, kUdpHeaderBytes + kMaxUdpPacketBytes> buffer;
  return socket->Send(WriteUdpPacket(buffer, token, packet)).error == 0;
}

void SocketUdpRelay::ReceiveLoop(DatagramSocket& socket) noexcept {
  std::array<std::byte, kMaxUdpDatagramBytes + kReadableBehindPacket> buffer{};
  while (hooks_.keepGoing()) {
    const platform::SocketResult received =
        socket.Receive(std::span(buffer).first(kMaxUdpDatagramBytes));
    if (received.error == 0) {
      Take(std::span(buffer).first(received.bytes));
    } else if (platform::IsSocketClosed(received.error) || !MayReceiveAgain(received.error)) {
      return;
    }
  }
}

void SocketUdpRelay::Take(std::span<std::byte> datagram) {
  if (const auto token = ParseAcknowledgement(datagram)) {
    Acknowledge(*token);
  } else if (const auto packet = ParseUdpPacket(datagram, token_)) {
    hooks_.inbound(*packet);
  }
}

void SocketUdpRelay::Acknowledge(std::uint64_t token) {
  token_ = token;
  lastAcknowledgement_ = deps_.now();
  SetReady(true);
}

void SocketUdpRelay::KeepAliveLoop() noexcept {
  while (WaitOut(kKeepAlivePeriod) && hooks_.keepGoing()) {
    if (!SendHello()) {
      SetReady(false);
    } else {
      LoseIfSilent();
    }
  }
}

// Looks and tells in one go: between the two, the acknowledgement of the hello just sent must not
// make the path ready, only to be overruled by what was true before it came.
void SocketUdpRelay::LoseIfSilent() {
  const platform::MutexLock held(reportLock_);
  if (token_ == 0 || !HasRecentAcknowledgement()) TellReady(false);
}

bool SocketUdpRelay::SendHello() {
  DatagramSocketPointer socket;
  Hello hello;
  {
    const platform::MutexLock held(udpLock_);
    socket = socket_;
    hello = hello_;
  }
  return socket != nullptr && socket->Send(*hello).error == 0;
}

void SocketUdpRelay::SetReady(bool ready) {
  const platform::MutexLock held(reportLock_);
  TellReady(ready);
}

void SocketUdpRelay::TellReady(bool ready) {
  {
    // A closed path is not ready, whatever was on its way here when Close() came.
    const platform::MutexLock open(udpLock_);
    if (socket_ == nullptr) return;
    ready_ = ready;
  }
  if (reported_ == ready) return;
  reported_ = ready;
  hooks_.readyChanged(ready);
}

bool SocketUdpRelay::HasRecentAcknowledgement() const {
  return deps_.now() - lastAcknowledgement_.load() <= kLossTime;
}

bool SocketUdpRelay::WaitOut(milliseconds time) {
  const milliseconds end = deps_.now() + time;
  const platform::MutexLock held(udpLock_);
  while (socket_ != nullptr) {
    const milliseconds left = end - deps_.now();
    if (left.count() <= 0) return true;
    deps_.wait(closed_, udpLock_, left);
  }
  return false;
}

}  // namespace tunnel
