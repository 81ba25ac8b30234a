#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <deque>
#include <functional>
#include <span>
#include <vector>

#include "platform/mutex.h"
#include "tunnel/relay/udp_relay.h"

namespace fuzz {

using Bytes = std::vector<std::byte>;

// The clock and the datagrams of a UDP relay, both controlled by the target. The relay's two
// threads run only while the target waits for them, so that a script is deterministic.
//
// Threads: the public functions on the target's; the others on the UDP relay's.
class ScriptedNetwork final : public tunnel::UdpNetwork {
 public:
  static constexpr std::uint64_t kToken = 0x1122334455667788;

  // `onSent` is called for each datagram, on the thread that sends it.
  explicit ScriptedNetwork(std::function<void(std::span<const std::byte>)> onSent)
      : onSent_(std::move(onSent)) {}

  tunnel::DatagramSocketPointer OpenSocket(const std::wstring& serverUrl,
                                           std::chrono::milliseconds timeout,
                                           const std::function<bool()>& isCancelled) override;
  [[nodiscard]] std::chrono::milliseconds Now() const override { return now_.load(); }
  void Wait(platform::Condition& condition, platform::Mutex& mutex,
            std::chrono::milliseconds time) override REQUIRES(mutex) EXCLUDES(lock_);

  // Whether later hellos are acknowledged, and whether later sends fail.
  void SetAnswering(bool isAnswering) { isAnswering_ = isAnswering; }
  void SetFailing(bool isFailing) { isFailing_ = isFailing; }

  // Each returns once both threads wait again or the path is closed.
  void Deliver(Bytes datagram) EXCLUDES(lock_);
  void Advance(std::chrono::milliseconds time) EXCLUDES(lock_);
  void AwaitQuiet() EXCLUDES(lock_);

  [[nodiscard]] bool IsOpen() EXCLUDES(lock_);
  // Whether an acknowledgement was received in the last 45 seconds.
  [[nodiscard]] bool HasRecentAcknowledgement() const;

  static Bytes Acknowledgement(std::uint64_t token = kToken);
  static Bytes PacketDatagram(std::span<const std::byte> packet);

 private:
  class ScriptedSocket;
  [[nodiscard]] bool IsQuiet() const REQUIRES(lock_);

  const std::function<void(std::span<const std::byte>)> onSent_;
  std::atomic<std::chrono::milliseconds> now_{std::chrono::milliseconds(1000000)};
  std::atomic<std::chrono::milliseconds> acknowledged_{std::chrono::milliseconds(0)};
  std::atomic<bool> isAnswering_{true};
  std::atomic<bool> isFailing_{false};
  platform::Mutex lock_;
  platform::Condition changed_;
  std::deque<Bytes> incoming_ GUARDED_BY(lock_);
  bool isOpen_ GUARDED_BY(lock_) = false;
  bool isReceiving_ GUARDED_BY(lock_) = false;  // the receiving thread waits
  bool isSleeping_ GUARDED_BY(lock_) = false;   // the keep-alive thread waits, on these:
  platform::Condition* sleepsOn_ GUARDED_BY(lock_) = nullptr;
  platform::Mutex* sleepsWith_ GUARDED_BY(lock_) = nullptr;
};

}  // namespace fuzz
