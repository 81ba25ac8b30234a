#include "scripted_network.h"

#include <algorithm>
#include <cerrno>
#include <utility>

namespace fuzz {
namespace {

using std::chrono::milliseconds;

// Attempts at the start wait at most this long; a running path waits longer.
constexpr milliseconds kLongestAttempt{900};
constexpr milliseconds kErrorPause{20};
constexpr milliseconds kLossTime{45000};

Bytes Header(std::uint8_t type) {
  Bytes bytes;
  for (const char letter : {'T', 'N', 'R', '1'}) bytes.push_back(static_cast<std::byte>(letter));
  bytes.push_back(std::byte{type});
  return bytes;
}

void AppendToken(Bytes& bytes, std::uint64_t token) {
  for (int shift = 56; shift >= 0; shift -= 8) {
    bytes.push_back(static_cast<std::byte>(token >> shift & 0xFF));
  }
}

bool IsHello(std::span<const std::byte> datagram) {
  return datagram.size() > 4 && datagram[4] == std::byte{2};
}

// An acknowledgement with any token except zero.
bool IsAcknowledgement(std::span<const std::byte> datagram) {
  const Bytes start = ScriptedNetwork::Acknowledgement();
  if (datagram.size() != start.size()) return false;
  return std::equal(datagram.begin(), datagram.begin() + 6, start.begin()) &&
         std::ranges::any_of(datagram.subspan(6),
                             [](std::byte byte) { return byte != std::byte{}; });
}

}  // namespace

class ScriptedNetwork::ScriptedSocket final : public tunnel::DatagramSocket {
 public:
  explicit ScriptedSocket(ScriptedNetwork& network) : network_(network) {
    const platform::MutexLock held(network_.lock_);
    network_.isOpen_ = true;
    network_.isReceiving_ = false;
    network_.isSleeping_ = false;
    network_.incoming_.clear();
  }

  void SetReceiveTimeout(milliseconds timeout) noexcept override { timeout_ = timeout; }

  platform::SocketResult Send(std::span<const std::byte> datagram) noexcept override {
    if (network_.isFailing_) return {0, ENETUNREACH};
    network_.onSent_(datagram);
    if (IsHello(datagram) && network_.isAnswering_) {
      const platform::MutexLock held(network_.lock_);
      network_.incoming_.push_back(Acknowledgement());
      network_.changed_.NotifyAll();
    }
    return {datagram.size(), 0};
  }

  platform::SocketResult Receive(std::span<std::byte> buffer) noexcept override {
    const platform::MutexLock held(network_.lock_);
    while (network_.isOpen_ && network_.incoming_.empty()) {
      if (timeout_ <= kLongestAttempt) {
        network_.now_ = network_.now_.load() + timeout_;
        return {0, ETIMEDOUT};
      }
      network_.isReceiving_ = true;
      network_.changed_.NotifyAll();
      network_.changed_.Wait(network_.lock_);
    }
    network_.isReceiving_ = false;
    if (!network_.isOpen_) return {0, platform::SocketClosedError()};
    const Bytes datagram = std::move(network_.incoming_.front());
    network_.incoming_.pop_front();
    if (datagram.size() > buffer.size()) return {0, EMSGSIZE};
    std::ranges::copy(datagram, buffer.begin());
    if (IsAcknowledgement(datagram)) network_.acknowledged_ = network_.now_.load();
    return {datagram.size(), 0};
  }

  void Close() noexcept override {
    const platform::MutexLock held(network_.lock_);
    network_.isOpen_ = false;
    network_.changed_.NotifyAll();
  }

 private:
  ScriptedNetwork& network_;
  milliseconds timeout_{0};  // set before the threads start
};

tunnel::DatagramSocketPointer ScriptedNetwork::OpenSocket(const std::wstring&, milliseconds,
                                                          const std::function<bool()>&) {
  return std::make_shared<ScriptedSocket>(*this);
}

// The pause after an error ends at once; the keep-alive's wait ends when the clock advances.
void ScriptedNetwork::Wait(platform::Condition& condition, platform::Mutex& mutex,
                           milliseconds time) {
  if (time <= kErrorPause) {
    now_ = now_.load() + time;
    return;
  }
  {
    const platform::MutexLock held(lock_);
    isSleeping_ = true;
    sleepsOn_ = &condition;
    sleepsWith_ = &mutex;
    changed_.NotifyAll();
  }
  condition.Wait(mutex);
}

void ScriptedNetwork::Advance(milliseconds time) {
  platform::Condition* condition = nullptr;
  platform::Mutex* mutex = nullptr;
  {
    const platform::MutexLock held(lock_);
    now_ = now_.load() + time;
    if (!isOpen_) return;
    isSleeping_ = false;
    condition = sleepsOn_;
    mutex = sleepsWith_;
  }
  {
    // Held until the thread waits: an earlier wake-up would be lost.
    const platform::MutexLock held(*mutex);
  }
  condition->NotifyAll();
  AwaitQuiet();
}

void ScriptedNetwork::Deliver(Bytes datagram) {
  {
    const platform::MutexLock held(lock_);
    if (!isOpen_) return;
    incoming_.push_back(std::move(datagram));
    changed_.NotifyAll();
  }
  AwaitQuiet();
}

void ScriptedNetwork::AwaitQuiet() {
  const platform::MutexLock held(lock_);
  while (isOpen_ && !IsQuiet()) changed_.Wait(lock_);
}

bool ScriptedNetwork::IsOpen() {
  const platform::MutexLock held(lock_);
  return isOpen_;
}

bool ScriptedNetwork::HasRecentAcknowledgement() const {
  return now_.load() - acknowledged_.load() <= kLossTime;
}

bool ScriptedNetwork::IsQuiet() const {
  return isReceiving_ && isSleeping_ && incoming_.empty();
}

Bytes ScriptedNetwork::Acknowledgement(std::uint64_t token) {
  Bytes bytes = Header(3);
  bytes.push_back(std::byte{2});
  AppendToken(bytes, token);
  return bytes;
}

Bytes ScriptedNetwork::PacketDatagram(std::span<const std::byte> packet) {
  Bytes bytes = Header(4);
  AppendToken(bytes, kToken);
  bytes.insert(bytes.end(), packet.begin(), packet.end());
  return bytes;
}

}  // namespace fuzz
