#pragma once

#include <functional>

#include "platform/mutex.h"
#include "tunnel/packets/stop_signal.h"
#include "tunnel/relay/relay_link.h"

namespace tunnel {

// Looks at the relay when there is reason to doubt it, as after the computer's sleep or a change of
// its addresses: pings it, and when nothing comes back within 1.5 s, drops the connection, so that
// it is made anew at once and not after the network's own time-outs. A connection that is being
// made is begun afresh, and a wait before an attempt is cut short.
//
// Threads: Run() on a thread of its own between Start() and Stop(); the rest by any.
class RelayWatch {
 public:
  // Keeps both references; they must outlive it.
  RelayWatch(RelayLink& link, StopSignal& signal) : link_(link), signal_(signal) {}

  // Before the thread begins; forgets what was asked before.
  void Start() noexcept EXCLUDES(lock_);
  // Ends Run() soon.
  void Stop() noexcept EXCLUDES(lock_);
  // Has Run() look once; requests that come before it has begun count as one.
  void Request() noexcept EXCLUDES(lock_);

  // The thread's body: at each request calls `alsoLook`, which must not throw, and looks at the
  // relay.
  void Run(const std::function<void()>& alsoLook) noexcept EXCLUDES(lock_);

 private:
  bool AwaitRequest() EXCLUDES(lock_);
  void LookAtRelay();
  bool Answers(WebSocketRelay& relay) EXCLUDES(lock_);

  RelayLink& link_;
  StopSignal& signal_;
  platform::Mutex lock_;
  platform::Condition changed_;
  bool isRequested_ GUARDED_BY(lock_) = false;
  bool isStopped_ GUARDED_BY(lock_) = true;
};

}  // namespace tunnel
