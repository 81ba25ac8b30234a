#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>

#include "platform/mutex.h"
#include "tunnel/packets/stop_signal.h"
#include "tunnel/relay/websocket_relay.h"

namespace tunnel {

// The tunnel's current relay connection and its status.
//
// Threads: any. Connect() by one thread at a time: the starting one, then the relay thread.
// Owns:    one reference to the current WebSocketRelay; its users hold their own.
class RelayLink {
 public:
  using RelayPointer = std::shared_ptr<WebSocketRelay>;

  // `tickMs` as for WebSocketRelay. Keeps the reference; the signal must outlive the link.
  explicit RelayLink(StopSignal& signal, TickCounter tickMs = nullptr)
      : signal_(signal), tickMs_(tickMs) {}

  // Replaces the current connection, which is closed, by a new one. Success marks the relay
  // connected and clears the last error. Throws as WebSocketRelay::Connect, leaving no current
  // connection. A stop ends it early.
  void Connect(const std::wstring& relayUrl) EXCLUDES(relayLock_);

  // Null if there is no connection.
  [[nodiscard]] RelayPointer Current() const EXCLUDES(relayLock_);

  // Closes `relay`, and releases it if it is still the current one.
  void Drop(const RelayPointer& relay) EXCLUDES(relayLock_);

  // Closes the current connection, which wakes its users; it stays current until Release().
  void Close() noexcept EXCLUDES(relayLock_);
  void Release() noexcept EXCLUDES(relayLock_);

  // Set from a successful Connect() until ClearConnected(), so it remains set until a loss is
  // noticed.
  [[nodiscard]] bool IsConnected() const noexcept { return connected_; }
  // Returns the previous value.
  bool ClearConnected() noexcept { return connected_.exchange(false); }

  // Why the last reconnect failed; empty once connected.
  [[nodiscard]] std::string LastError() const EXCLUDES(statusLock_);
  void SetLastError(std::string message) EXCLUDES(statusLock_);

 private:
  StopSignal& signal_;
  const TickCounter tickMs_;
  std::atomic<bool> connected_{false};
  mutable platform::Mutex relayLock_;
  RelayPointer relay_ GUARDED_BY(relayLock_);
  mutable platform::Mutex statusLock_;
  std::string lastError_ GUARDED_BY(statusLock_);
};

}  // namespace tunnel
