#include "tunnel/relay/relay_link.h"

#include <utility>

namespace tunnel {

void RelayLink::Connect(const std::wstring& relayUrl) {
  // Made current before it connects, so that Close() reaches the attempt. A stop that came earlier
  // is visible through the signal.
  const RelayPointer fresh = std::make_shared<WebSocketRelay>(tickMs_);
  RelayPointer old = fresh;
  {
    const platform::MutexLock held(relayLock_);
    relay_.swap(old);
  }
  if (old != nullptr) old->Close();
  try {
    fresh->Connect(relayUrl, [this]() { return signal_.IsSet(); });
  } catch (...) {
    Drop(fresh);
    throw;
  }
  connected_ = true;
  SetLastError({});
}

RelayLink::RelayPointer RelayLink::Current() const {
  const platform::MutexLock held(relayLock_);
  return relay_;
}

void RelayLink::Drop(const RelayPointer& relay) {
  {
    const platform::MutexLock held(relayLock_);
    // The caller may hold an older connection; a newer one stays.
    if (relay_ == relay) relay_.reset();
  }
  relay->Close();
}

void RelayLink::Close() noexcept {
  const platform::MutexLock held(relayLock_);
  if (relay_ != nullptr) relay_->Close();
}

void RelayLink::Release() noexcept {
  // Declared before the lock: the last reference closes the socket, outside the lock.
  RelayPointer old;
  const platform::MutexLock held(relayLock_);
  relay_.swap(old);
}

std::string RelayLink::LastError() const {
  const platform::MutexLock held(statusLock_);
  return lastError_;
}

void RelayLink::SetLastError(std::string message) {
  const platform::MutexLock held(statusLock_);
  lastError_ = std::move(message);
}

}  // namespace tunnel
