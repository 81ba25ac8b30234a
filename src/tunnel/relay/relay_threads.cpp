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
  if (!relay->SendFrames(kOpcodeBinary, payloads)) link.Drop(relay);
}

// Sends what goes by UDP and leaves in `rest` what does not. A datagram may so pass a frame that
// stood before it: the two ways to the relay keep no order between them anyway.
void SendDatagrams(std::span<const Packet> batch, UdpRelay& udp, Payloads& rest) {
  rest.clear();
  const bool isReady = udp.IsReady();
  for (const Packet& packet : batch) {
    const bool goesByUdp = isReady && packet.size() <= kMaxUdpPacketBytes;
    if (!goesByUdp || !udp.SendUdpPacket(packet)) rest.emplace_back(packet);
  }
}

constexpr std::chrono::milliseconds kAnswerTime{1500};
constexpr std::chrono::milliseconds kLookEvery{20};

}  // namespace

void RelayWorker::Run() noexcept {
  try {
    while (work_.flags.KeepGoing()) {
      ReceiveUntilLost();
      while (work_.flags.KeepGoing() && !Reconnect()) {
      }
    }
  } catch (const std::exception& error) {
    // Only an exhausted memory comes this far; the status shows why nothing is received any more.
    work_.link.SetLastError(error.what());
    if (work_.link.ClearConnected()) work_.linkChanged(false);
  }
}

void RelayWorker::ReceiveUntilLost() {
  const RelayLink::RelayPointer relay = work_.link.Current();
  if (relay == nullptr) return;
  std::span<std::byte> packet;
  while (relay->ReadMessage(packet)) {
    try {
      work_.inbound(packet);
    } catch (const std::exception&) {
      // The driver refused this packet; the next may pass.
    }
  }
  if (work_.flags.KeepGoing()) work_.link.Drop(relay);
}

bool RelayWorker::Reconnect() {
  if (work_.link.ClearConnected()) work_.linkChanged(false);
  work_.pause(reconnectDelay_);
  if (!work_.flags.KeepGoing()) return false;
  work_.udp.Close();
  work_.udp.Join();
  try {
    work_.link.Connect(work_.relayUrl);
    work_.udp.StartUdpRelay(work_.udpRequest);
  } catch (const std::exception& error) {
    DropHalfMade();
    work_.link.SetLastError(error.what());
    TellFailure(error.what());
    reconnectDelay_ = std::min(reconnectDelay_ * 2, kLongestDelay);
    return false;
  }
  toldReason_.clear();
  reconnectDelay_ = kFirstDelay;
  work_.linkChanged(true);
  return true;
}

// The WebSocket of an attempt whose UDP path failed: nobody would read it during the wait, and the
// next attempt would take its mark for a connection and report one more loss.
void RelayWorker::DropHalfMade() {
  work_.link.ClearConnected();
  if (const RelayLink::RelayPointer relay = work_.link.Current()) work_.link.Drop(relay);
}

// What a stop has ended is no failure worth telling.
void RelayWorker::TellFailure(const std::string& reason) {
  if (reason == toldReason_ || !work_.flags.KeepGoing()) return;
  toldReason_ = reason;
  work_.reconnectFailed(reason);
}

void SenderLoop(const TunnelFlags& flags, PacketQueue& queue, RelayLink& link,
                UdpRelay& udp) noexcept {
  std::vector<Packet> batch;
  Payloads frames;
  while (flags.KeepGoing()) {
    try {
      batch.reserve(PacketQueue::kBatchPackets);
      frames.reserve(PacketQueue::kBatchPackets);
      if (!queue.Take(batch)) return;
      SendDatagrams(batch, udp, frames);
      if (!frames.empty()) SendFrames(frames, link);
    } catch (const std::exception&) {
      // Only an exhausted memory comes this far; the packets are lost.
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

void RelayWatch::Run(const std::function<void()>& alsoLook) noexcept {
  while (AwaitRequest()) {
    alsoLook();
    try {
      LookAtRelay();
    } catch (const std::exception&) {
      // Short memory for a ping; the relay's own time-out still holds.
    }
  }
}

// False at the end.
bool RelayWatch::AwaitRequest() {
  const platform::MutexLock held(lock_);
  while (!isRequested_ && !isStopped_) changed_.Wait(lock_);
  isRequested_ = false;
  return !isStopped_;
}

void RelayWatch::LookAtRelay() {
  const RelayLink::RelayPointer relay = link_.Current();
  if (relay != nullptr && relay->IsConnected() && Answers(*relay)) return;
  // First the word to hurry: the wait that follows the drop may begin at once.
  signal_.Hurry();
  if (relay != nullptr) link_.Drop(relay);
}

// Also true when that cannot be told: of a connection just made, which nobody reads yet, and when
// the watch ends.
bool RelayWatch::Answers(WebSocketRelay& relay) {
  if (!relay.IsBeingRead()) return true;
  const std::uint64_t before = relay.ReceivedBytes();
  if (!relay.SendFrame(kOpcodePing, {})) return false;
  const auto end = std::chrono::steady_clock::now() + kAnswerTime;
  const platform::MutexLock held(lock_);
  while (!isStopped_ && relay.ReceivedBytes() == before) {
    if (!relay.IsConnected() || std::chrono::steady_clock::now() >= end) return false;
    changed_.WaitFor(lock_, kLookEvery);
  }
  return true;
}

}  // namespace tunnel
