#include "tunnel/relay/relay_threads.h"

#include <algorithm>
#include <chrono>
#include <exception>
#include <span>
#include <vector>

#include "tunnel/relay/udp_datagram.h"

namespace tunnel {
namespace {

constexpr std::chrono::seconds kFirstDelay{1};
constexpr std::chrono::seconds kLongestDelay{10};

using Payloads = std::vector<std::span<const std::byte>>;

void SendFrames(const Payloads& payloads, RelayLink& link) {
  const RelayLink::RelayPointer relay = link.Current();
  if (relay == nullptr || !relay->IsConnected()) return;
  // Part of a frame may be on its way, so the stream cannot be continued.
  if (!relay->SendFrames(kOpcodeBinary, payloads)) link.Drop(relay);
}

// Sends by UDP as much as possible and leaves the rest in `rest`. A datagram may overtake an
// earlier frame; the two paths have no common order anyway.
void SendDatagrams(std::span<const Packet> batch, UdpRelay& udp, Payloads& rest) {
  rest.clear();
  // Once per batch: a path that closes in between refuses each packet itself.
  const bool isReady = udp.IsReady();
  for (const Packet& packet : batch) {
    const bool usesUdp = isReady && packet.size() <= kMaxUdpPacketBytes;
    if (!usesUdp || !udp.SendUdpPacket(packet)) rest.emplace_back(packet);
  }
}

constexpr std::chrono::milliseconds kAnswerTime{1500};
constexpr std::chrono::milliseconds kPollInterval{20};

}  // namespace

void RelayWorker::Run() noexcept {
  try {
    while (host_.KeepGoing()) {
      ReceiveUntilLost();
      while (host_.KeepGoing() && !Reconnect()) {
      }
    }
  } catch (const std::exception& error) {
    // Only lack of memory reaches this point. The status shows why nothing is received any more.
    link_.SetLastError(error.what());
    if (link_.ClearConnected()) host_.OnLinkChanged(false);
  }
}

void RelayWorker::ReceiveUntilLost() {
  const RelayLink::RelayPointer relay = link_.Current();
  if (relay == nullptr) return;
  std::span<std::byte> packet;
  while (relay->ReadMessage(packet)) host_.HandleInbound(packet);
  if (host_.KeepGoing()) link_.Drop(relay);
}

bool RelayWorker::Reconnect() {
  if (link_.ClearConnected()) host_.OnLinkChanged(false);
  host_.Pause(reconnectDelay_);
  if (!host_.KeepGoing()) return false;
  // After the pause: while the WebSocket is away, the UDP path continues to carry small packets.
  udp_.Close();
  udp_.Join();
  try {
    link_.Connect(relayUrl_);
    udp_.StartUdpRelay(udpRequest_);
  } catch (const std::exception& error) {
    DropHalfOpen();
    link_.SetLastError(error.what());
    ReportFailure(error.what());
    reconnectDelay_ = std::min(reconnectDelay_ * 2, kLongestDelay);
    return false;
  }
  // The next outage reports its reasons anew.
  reportedReason_.clear();
  reconnectDelay_ = kFirstDelay;
  // Last: an attempt whose UDP path fails still belongs to the same loss.
  host_.OnLinkChanged(true);
  return true;
}

// Closes the WebSocket of an attempt whose UDP path failed. Left open, it would go unread during
// the wait, and the next attempt would report its "connected" mark as one more loss.
void RelayWorker::DropHalfOpen() {
  link_.ClearConnected();
  if (const RelayLink::RelayPointer relay = link_.Current()) link_.Drop(relay);
}

// Reports each reason once, and nothing when a stop has ended the attempt.
void RelayWorker::ReportFailure(const std::string& reason) {
  if (reason == reportedReason_ || !host_.KeepGoing()) return;
  reportedReason_ = reason;
  host_.OnReconnectFailed(reason);
}

void SenderLoop(const TunnelFlags& flags, PacketQueue& queue, RelayLink& link,
                UdpRelay& udp) noexcept {
  std::vector<Packet> batch;
  Payloads frames;
  while (flags.KeepGoing()) {
    try {
      // Inside the loop, so that a failed allocation is tried again.
      batch.reserve(PacketQueue::kBatchPackets);
      frames.reserve(PacketQueue::kBatchPackets);
      if (!queue.Take(batch)) return;
      SendDatagrams(batch, udp, frames);
      if (!frames.empty()) SendFrames(frames, link);
    } catch (const std::exception&) {
      // Only lack of memory reaches this point; the batch is lost.
    }
  }
}

void RelayWatch::Start() noexcept {
  const platform::MutexLock held(lock_);
  isRequested_ = false;
  isStopped_ = false;
}

void RelayWatch::Stop() noexcept {
  {
    const platform::MutexLock held(lock_);
    isStopped_ = true;
  }
  changed_.NotifyAll();
}

void RelayWatch::Request() noexcept {
  {
    const platform::MutexLock held(lock_);
    isRequested_ = true;
  }
  changed_.NotifyAll();
}

void RelayWatch::Run(const std::function<void()>& checkNetworks) noexcept {
  while (AwaitRequest()) {
    checkNetworks();
    try {
      CheckRelay();
    } catch (const std::exception&) {
      // No memory for a ping; the relay's own time-out still applies.
    }
  }
}

// False once stopped.
bool RelayWatch::AwaitRequest() {
  const platform::MutexLock held(lock_);
  while (!isRequested_ && !isStopped_) changed_.Wait(lock_);
  isRequested_ = false;
  return !isStopped_;
}

void RelayWatch::CheckRelay() {
  const RelayLink::RelayPointer relay = link_.Current();
  if (relay != nullptr && relay->IsConnected() && Answers(*relay)) return;
  // Before the drop, which may start the wait that this cuts short.
  signal_.Hurry();
  if (relay != nullptr) link_.Drop(relay);
}

// Also true when the answer cannot be known: for a new connection that is not being read yet, and
// when the watch is stopped.
bool RelayWatch::Answers(WebSocketRelay& relay) {
  if (!relay.IsBeingRead()) return true;
  // Any byte proves that the relay is alive, not only the pong.
  const std::uint64_t before = relay.ReceivedBytes();
  if (!relay.SendFrame(kOpcodePing, {})) return false;
  const auto end = std::chrono::steady_clock::now() + kAnswerTime;
  const platform::MutexLock held(lock_);
  while (!isStopped_ && relay.ReceivedBytes() == before) {
    if (!relay.IsConnected() || std::chrono::steady_clock::now() >= end) return false;
    // The receiving thread only counts bytes, without waking anyone; hence the short waits.
    changed_.WaitFor(lock_, kPollInterval);
  }
  return true;
}

}  // namespace tunnel
