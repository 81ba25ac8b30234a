#pragma once

#include <atomic>
#include <functional>
#include <memory>
#include <string>

#include "platform/mutex.h"
#include "tunnel/packets/stop_signal.h"
#include "tunnel/relay/websocket_relay.h"

namespace tunnel {

// The tunnel's current relay connection and what is known of it.
//
// Threads: any. Connect() by one thread at a time: the starting one, then the relay thread.
// Owns:    one reference to the current WebSocketRelay; its users hold their own.
class RelayLink {
 public:
  using RelayPointer = std::shared_ptr<WebSocketRelay>;

  // `tickMs` as in RelayHooks. Keeps the reference; the signal must outlive it.
  RelayLink(StopSignal& signal, std::function<std::uint32_t()> tickMs)
      : signal_(signal), tickMs_(std::move(tickMs)) {}

  // Puts a new connection in place of the current one, which is closed. Success marks the relay
  // connected and forgets the last error. Throws what WebSocketRelay::Connect throws; nothing is
  // current then. A stop ends it early.
  void Connect(const std::wstring& relayUrl) EXCLUDES(relayLock_);

  // Null when there is none.
  [[nodiscard]] RelayPointer Current() const EXCLUDES(relayLock_);

  // Closes `relay` and lets it go if it is still the current one.
  void Drop(const RelayPointer& relay) EXCLUDES(relayLock_);

  // Closes the current connection, which wakes its users; it stays current until Release().
  void Close() noexcept EXCLUDES(relayLock_);
  void Release() noexcept EXCLUDES(relayLock_);

  // Set from a successful Connect() until ClearConnected(), so it stays set while a lost connection
  // is not yet noticed.
  [[nodiscard]] bool IsConnected() const noexcept { return connected_; }
  // True when it was set.
  bool ClearConnected() noexcept { return connected_.exchange(false); }

  // Why the last reconnect failed; empty once connected.
  [[nodiscard]] std::string LastError() const EXCLUDES(statusLock_);
  void SetLastError(std::string message) EXCLUDES(statusLock_);

 private:
  StopSignal& signal_;
  const std::function<std::uint32_t()> tickMs_;
  std::atomic<bool> connected_{false};
  mutable platform::Mutex relayLock_;
  RelayPointer relay_ GUARDED_BY(relayLock_);
  mutable platform::Mutex statusLock_;
  std::string lastError_ GUARDED_BY(statusLock_);
};

}  // namespace tunnel
