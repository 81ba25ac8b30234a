#include "tunnel/relay/relay_worker.h"

#include <algorithm>
#include <exception>
#include <span>

namespace tunnel {
namespace {

constexpr std::chrono::seconds kFirstDelay{1};
constexpr std::chrono::seconds kLongestDelay{10};

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

}  // namespace tunnel
