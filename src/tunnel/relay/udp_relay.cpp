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

class SystemUdpNetwork final : public UdpNetwork {
 public:
  DatagramSocketPointer OpenSocket(const std::wstring& serverUrl, milliseconds timeout,
                                   const std::function<bool()>& isCancelled) override {
    return OpenRelaySocket(serverUrl, timeout, isCancelled);
  }
  [[nodiscard]] milliseconds Now() const override {
    return std::chrono::duration_cast<milliseconds>(
        std::chrono::steady_clock::now().time_since_epoch());
  }
  void Wait(platform::Condition& condition, platform::Mutex& mutex, milliseconds time) override
      REQUIRES(mutex) {
    condition.WaitFor(mutex, time);
  }
};

}  // namespace

UdpNetwork& RealUdpNetwork() {
  static SystemUdpNetwork network;
  return network;
}

SocketUdpRelay::~SocketUdpRelay() {
  Close();
  Join();
}

void SocketUdpRelay::StartUdpRelay(const UdpRelayRequest& request) {
  assert(threads_.empty());
  const DatagramSocketPointer socket =
      network_.OpenSocket(request.serverUrl, kAttemptTime, [this] { return !host_.KeepGoing(); });
  const auto hello = std::make_shared<const std::vector<std::byte>>(
      BuildHello(request.connectionId, request.engineerId));
  token_ = 0;  // tokens are valid for one path only
  {
    // From here on Close() reaches the socket; an earlier stop is visible through KeepGoing().
    const platform::MutexLock held(udpLock_);
    socket_ = socket;
    hello_ = hello;
  }
  const std::optional<std::uint64_t> token = SayHello(*socket, hello);
  socket->SetReceiveTimeout(kReceiveTimeout);
  token_ = token.value_or(0);
  lastAcknowledgement_ = network_.Now();
  // During a stop nothing is reported: the path is closed anyway.
  if (host_.KeepGoing()) SetReady(token.has_value());
  // Also without an answer: a later acknowledgement still makes the path ready.
  threads_.emplace_back([this, socket]() noexcept { ReceiveLoop(*socket); });
  threads_.emplace_back([this]() noexcept { KeepAliveLoop(); });
}

// Pauses first unless the error is a time-out: a socket that fails at once would spin. False if the
// path is closed by then.
bool SocketUdpRelay::MayReceiveAgain(int error) {
  return platform::IsSocketTimeout(error) || SleepUnlessClosed(kErrorPause);
}

// Returns the token of the first acknowledgement.
std::optional<std::uint64_t> SocketUdpRelay::SayHello(DatagramSocket& socket, const Hello& hello) {
  for (int attempt = 0; attempt < kAttempts && host_.KeepGoing(); ++attempt) {
    socket.Send(*hello);
    if (const auto token = AwaitAcknowledgement(socket)) return token;
  }
  return std::nullopt;
}

// Waits the whole of one attempt: errors and foreign datagrams must not cut it short.
std::optional<std::uint64_t> SocketUdpRelay::AwaitAcknowledgement(DatagramSocket& socket) {
  const milliseconds end = network_.Now() + kAttemptTime;
  std::array<std::byte, kMaxUdpDatagramBytes> buffer;
  for (milliseconds left = kAttemptTime; left.count() > 0; left = end - network_.Now()) {
    // The remaining time only: a datagram that does not count must not start the wait anew.
    socket.SetReceiveTimeout(left);
    const platform::SocketResult received = socket.Receive(buffer);
    if (platform::IsSocketClosed(received.error) || !host_.KeepGoing()) return std::nullopt;
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
  // The keep-alive checks only every 15 s; a silent path counts as lost at once.
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
  // Initialised, because the checksum function may read behind the packet.
  std::array<std::byte, kMaxUdpDatagramBytes + kReadableBehindPacket> buffer{};
  while (host_.KeepGoing()) {
    const platform::SocketResult received =
        socket.Receive(std::span(buffer).first(kMaxUdpDatagramBytes));
    if (received.error == 0) {
      HandleDatagram(std::span(buffer).first(received.bytes));
    } else if (platform::IsSocketClosed(received.error) || !MayReceiveAgain(received.error)) {
      return;
    }
  }
}

void SocketUdpRelay::HandleDatagram(std::span<std::byte> datagram) {
  if (const auto token = ParseAcknowledgement(datagram)) {
    Acknowledge(*token);
  } else if (const auto packet = ParseUdpPacket(datagram, token_)) {
    host_.HandleInbound(*packet);
  }
}

void SocketUdpRelay::Acknowledge(std::uint64_t token) {
  // The newest token applies both ways; the relay may change it at any time.
  token_ = token;
  lastAcknowledgement_ = network_.Now();
  SetReady(true);
}

void SocketUdpRelay::KeepAliveLoop() noexcept {
  while (SleepUnlessClosed(kKeepAlivePeriod) && host_.KeepGoing()) {
    // A hello that cannot be sent shows a dead network sooner than 45 s of silence.
    if (!SendHello()) {
      SetReady(false);
    } else {
      LoseIfSilent();
    }
  }
}

// Checks and reports under one lock. Otherwise an acknowledgement that arrives between the two
// would make the path ready, and the outdated check would then undo it.
void SocketUdpRelay::LoseIfSilent() {
  const platform::MutexLock held(reportLock_);
  if (token_ == 0 || !HasRecentAcknowledgement()) SetReadyLocked(false);
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
  SetReadyLocked(ready);
}

void SocketUdpRelay::SetReadyLocked(bool ready) {
  {
    // Close() may have run since the caller's check; a closed path must not become ready.
    const platform::MutexLock open(udpLock_);
    if (socket_ == nullptr) return;
    ready_ = ready;
  }
  if (reported_ == ready) return;
  reported_ = ready;
  host_.OnUdpChanged(ready);
}

bool SocketUdpRelay::HasRecentAcknowledgement() const {
  return network_.Now() - lastAcknowledgement_.load() <= kLossTime;
}

bool SocketUdpRelay::SleepUnlessClosed(milliseconds time) {
  const milliseconds end = network_.Now() + time;
  const platform::MutexLock held(udpLock_);
  // In a loop: a wake-up before the time must not bring the next hello forward.
  while (socket_ != nullptr) {
    const milliseconds left = end - network_.Now();
    if (left.count() <= 0) return true;
    network_.Wait(closed_, udpLock_, left);
  }
  return false;
}

}  // namespace tunnel
