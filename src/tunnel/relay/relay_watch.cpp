#include "tunnel/relay/relay_watch.h"

#include <chrono>
#include <exception>

namespace tunnel {
namespace {

constexpr std::chrono::milliseconds kAnswerTime{1500};
constexpr std::chrono::milliseconds kLookEvery{20};

}  // namespace

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
