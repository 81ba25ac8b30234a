#pragma once

#include <chrono>
#include <deque>
#include <functional>
#include <string>
#include <vector>

#include "platform/mutex.h"
#include "tunnel/relay/test_frames.h"
#include "tunnel/relay/udp_datagram.h"
#include "tunnel/relay/udp_relay.h"

namespace tunnel {

// A UDP network in memory with a clock that only the test moves. Two exceptions take no real time
// but move the clock: a receive with a time-out of at most 900 ms (a start's attempts), and a pause
// of at most 20 ms (after an error). Longer waits need Advance().
//
// Threads: any. Waits end within ten seconds.
class FakeDatagrams final : public UdpNetwork {
 public:
  // Called at the start of each OpenSocket().
  std::function<void(const std::function<bool()>& isCancelled)> beforeOpen =
      [](const std::function<bool()>&) {};

  DatagramSocketPointer OpenSocket(const std::wstring& serverUrl, std::chrono::milliseconds timeout,
                                   const std::function<bool()>& isCancelled) override
      EXCLUDES(lock_);
  [[nodiscard]] std::chrono::milliseconds Now() const override EXCLUDES(lock_);
  void Wait(platform::Condition& condition, platform::Mutex& mutex,
            std::chrono::milliseconds time) override REQUIRES(mutex) EXCLUDES(lock_);

  // `answer` returns the relay's datagrams for each hello; called without locks.
  void AnswerHellosWith(std::function<std::vector<Bytes>()> answer) EXCLUDES(lock_);
  void Deliver(Bytes datagram) EXCLUDES(lock_);
  // The next receive fails with this error.
  void FailReceive(int error) EXCLUDES(lock_);
  // Makes every later receive of a start's attempts fail with this error.
  void FailAttempts(int error) EXCLUDES(lock_);
  // Makes later sends fail or succeed.
  void FailSends(bool fail) EXCLUDES(lock_);
  void Advance(std::chrono::milliseconds time) EXCLUDES(lock_);

  [[nodiscard]] std::vector<Bytes> Sent() const EXCLUDES(lock_);
  // The arguments of each OpenSocket().
  struct Opening {
    std::wstring serverUrl;
    std::chrono::milliseconds timeout;
    friend bool operator==(const Opening&, const Opening&) = default;
  };
  [[nodiscard]] std::vector<Opening> Openings() const EXCLUDES(lock_);
  // The receive time-outs in the order they were set.
  [[nodiscard]] std::vector<std::chrono::milliseconds> Timeouts() const EXCLUDES(lock_);
  // The waits of at most 20 ms.
  [[nodiscard]] std::vector<std::chrono::milliseconds> Pauses() const EXCLUDES(lock_);
  [[nodiscard]] int OpenSockets() const EXCLUDES(lock_);
  [[nodiscard]] bool WaitForSent(std::size_t count) EXCLUDES(lock_);
  // True once every datagram has been received and the receiver waits again.
  [[nodiscard]] bool WaitForQuiet() EXCLUDES(lock_);
  // True once the path has started `count` waits in total; each ends soon without help.
  [[nodiscard]] bool WaitForWaits(std::size_t count) EXCLUDES(lock_);
  // True once the keep-alive waits for a future time.
  [[nodiscard]] bool WaitForSleeper() EXCLUDES(lock_);

 private:
  class FakeSocket;
  template <typename Condition>
  bool WaitUntil(Condition condition) REQUIRES(lock_);

  mutable platform::Mutex lock_;
  platform::Condition changed_;
  std::function<std::vector<Bytes>()> answer_ GUARDED_BY(lock_);
  std::chrono::milliseconds now_ GUARDED_BY(lock_){1000000};
  std::deque<Bytes> incoming_ GUARDED_BY(lock_);
  std::vector<Bytes> sent_ GUARDED_BY(lock_);
  std::vector<Opening> openings_ GUARDED_BY(lock_);
  std::vector<std::chrono::milliseconds> timeouts_ GUARDED_BY(lock_);
  std::vector<std::chrono::milliseconds> pauses_ GUARDED_BY(lock_);
  int receiveError_ GUARDED_BY(lock_) = 0;  // of one receive
  int attemptError_ GUARDED_BY(lock_) = 0;
  bool failSends_ GUARDED_BY(lock_) = false;
  int openSockets_ GUARDED_BY(lock_) = 0;
  int receivers_ GUARDED_BY(lock_) = 0;
  std::size_t waits_ GUARDED_BY(lock_) = 0;
  std::chrono::milliseconds sleepsUntil_ GUARDED_BY(lock_){0};
};

// The relay's datagrams, built without the program's code.
Bytes AcknowledgementOf(std::uint64_t token, int helloType = 2);
Bytes PacketDatagram(std::uint64_t token, std::span<const std::byte> packet);

}  // namespace tunnel
