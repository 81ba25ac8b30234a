#include "tunnel/relay/fake_datagrams.h"

#include <algorithm>
#include <utility>

#include "tunnel/patience.h"

namespace tunnel {
namespace {

using std::chrono::milliseconds;

constexpr milliseconds kLongestAttempt{900};
constexpr milliseconds kErrorPause{20};
// The polling interval of a thread that waits for the fake clock on the program's condition.
constexpr milliseconds kSlice{1};

// WSAETIMEDOUT or ETIMEDOUT.
const int kTimedOut = platform::IsSocketTimeout(10060) ? 10060 : 110;
constexpr int kSendRefused = 10051;
constexpr int kTooLong = 10040;

bool IsHello(std::span<const std::byte> datagram) {
  return datagram.size() > 4 && (datagram[4] == std::byte{1} || datagram[4] == std::byte{2});
}

}  // namespace

class FakeDatagrams::FakeSocket final : public DatagramSocket {
 public:
  FakeSocket(FakeDatagrams& world, milliseconds timeout) : world_(world), timeout_(timeout) {
    const platform::MutexLock held(world_.lock_);
    ++world_.openSockets_;
    world_.incoming_.clear();
  }
  ~FakeSocket() override { FakeSocket::Close(); }

  void SetReceiveTimeout(milliseconds timeout) noexcept override {
    const platform::MutexLock held(world_.lock_);
    timeout_ = timeout;
    world_.timeouts_.push_back(timeout);
  }

  platform::SocketResult Send(std::span<const std::byte> datagram) noexcept override {
    std::function<std::vector<Bytes>()> answer;
    {
      const platform::MutexLock held(world_.lock_);
      if (isClosed_) return {0, platform::SocketClosedError()};
      if (world_.failSends_) return {0, kSendRefused};
      world_.sent_.emplace_back(datagram.begin(), datagram.end());
      if (IsHello(datagram)) answer = world_.answer_;
      world_.changed_.NotifyAll();
    }
    if (answer) {
      for (Bytes& bytes : answer()) world_.Deliver(std::move(bytes));
    }
    return {datagram.size(), 0};
  }

  platform::SocketResult Receive(std::span<std::byte> buffer) noexcept override {
    const platform::MutexLock held(world_.lock_);
    const milliseconds end = world_.now_ + timeout_;
    ++world_.receivers_;
    world_.changed_.NotifyAll();
    const platform::SocketResult result = Await(buffer, end);
    --world_.receivers_;
    return result;
  }

  void Close() noexcept override {
    const platform::MutexLock held(world_.lock_);
    if (!isClosed_) --world_.openSockets_;
    isClosed_ = true;
    world_.changed_.NotifyAll();
  }

 private:
  platform::SocketResult Await(std::span<std::byte> buffer, milliseconds end)
      REQUIRES(world_.lock_) {
    for (;;) {
      if (isClosed_) return {0, platform::SocketClosedError()};
      if (world_.receiveError_ != 0) return {0, std::exchange(world_.receiveError_, 0)};
      if (world_.attemptError_ != 0 && IsAttempt()) return {0, world_.attemptError_};
      if (!world_.incoming_.empty()) break;
      if (IsAttempt()) world_.now_ = std::max(world_.now_, end);
      if (world_.now_ >= end) return {0, kTimedOut};
      world_.changed_.WaitFor(world_.lock_, milliseconds(100));
    }
    const Bytes datagram = std::move(world_.incoming_.front());
    world_.incoming_.pop_front();
    if (datagram.size() > buffer.size()) return {0, kTooLong};
    std::ranges::copy(datagram, buffer.begin());
    return {datagram.size(), 0};
  }

  [[nodiscard]] bool IsAttempt() const { return timeout_ <= kLongestAttempt; }

  FakeDatagrams& world_;
  milliseconds timeout_;
  bool isClosed_ = false;
};

DatagramSocketPointer FakeDatagrams::OpenSocket(const std::wstring& serverUrl, milliseconds timeout,
                                                const std::function<bool()>& isCancelled) {
  beforeOpen(isCancelled);
  {
    const platform::MutexLock held(lock_);
    openings_.push_back({serverUrl, timeout});
  }
  return std::make_shared<FakeSocket>(*this, timeout);
}

void FakeDatagrams::Wait(platform::Condition& condition, platform::Mutex& mutex,
                         milliseconds time) {
  {
    const platform::MutexLock held(lock_);
    ++waits_;
    if (time <= kErrorPause) {
      now_ += time;
      pauses_.push_back(time);
    } else {
      sleepsUntil_ = now_ + time;
    }
  }
  changed_.NotifyAll();
  condition.WaitFor(mutex, kSlice);
}

void FakeDatagrams::AnswerHellosWith(std::function<std::vector<Bytes>()> answer) {
  const platform::MutexLock held(lock_);
  answer_ = std::move(answer);
}

void FakeDatagrams::Deliver(Bytes datagram) {
  const platform::MutexLock held(lock_);
  incoming_.push_back(std::move(datagram));
  changed_.NotifyAll();
}

void FakeDatagrams::FailReceive(int error) {
  const platform::MutexLock held(lock_);
  receiveError_ = error;
  changed_.NotifyAll();
}

void FakeDatagrams::FailAttempts(int error) {
  const platform::MutexLock held(lock_);
  attemptError_ = error;
}

void FakeDatagrams::FailSends(bool fail) {
  const platform::MutexLock held(lock_);
  failSends_ = fail;
}

void FakeDatagrams::Advance(milliseconds time) {
  const platform::MutexLock held(lock_);
  now_ += time;
  changed_.NotifyAll();
}

milliseconds FakeDatagrams::Now() const {
  const platform::MutexLock held(lock_);
  return now_;
}

std::vector<Bytes> FakeDatagrams::Sent() const {
  const platform::MutexLock held(lock_);
  return sent_;
}

std::vector<FakeDatagrams::Opening> FakeDatagrams::Openings() const {
  const platform::MutexLock held(lock_);
  return openings_;
}

std::vector<milliseconds> FakeDatagrams::Timeouts() const {
  const platform::MutexLock held(lock_);
  return timeouts_;
}

std::vector<milliseconds> FakeDatagrams::Pauses() const {
  const platform::MutexLock held(lock_);
  return pauses_;
}

int FakeDatagrams::OpenSockets() const {
  const platform::MutexLock held(lock_);
  return openSockets_;
}

template <typename Condition>
bool FakeDatagrams::WaitUntil(Condition condition) {
  const auto deadline = std::chrono::steady_clock::now() + kPatience;
  while (!condition()) {
    if (std::chrono::steady_clock::now() > deadline) return false;
    changed_.WaitFor(lock_, milliseconds(100));
  }
  return true;
}

bool FakeDatagrams::WaitForSent(std::size_t count) {
  const platform::MutexLock held(lock_);
  return WaitUntil([&]() REQUIRES(lock_) { return sent_.size() >= count; });
}

bool FakeDatagrams::WaitForQuiet() {
  const platform::MutexLock held(lock_);
  return WaitUntil([this]() REQUIRES(lock_) {
    return incoming_.empty() && receiveError_ == 0 && receivers_ > 0;
  });
}

bool FakeDatagrams::WaitForWaits(std::size_t count) {
  const platform::MutexLock held(lock_);
  return WaitUntil([&]() REQUIRES(lock_) { return waits_ >= count; });
}

bool FakeDatagrams::WaitForSleeper() {
  const platform::MutexLock held(lock_);
  return WaitUntil([this]() REQUIRES(lock_) { return sleepsUntil_ > now_; });
}

Bytes AcknowledgementOf(std::uint64_t token, int helloType) {
  Bytes datagram = BytesOf("TNR1");
  Append(datagram, BytesOf({3, helloType}));
  for (int shift = 56; shift >= 0; shift -= 8) {
    datagram.push_back(static_cast<std::byte>(token >> shift & 0xFF));
  }
  return datagram;
}

Bytes PacketDatagram(std::uint64_t token, std::span<const std::byte> packet) {
  Bytes datagram = AcknowledgementOf(token);
  datagram.erase(datagram.begin() + 5);
  datagram[4] = std::byte{4};
  Append(datagram, packet);
  return datagram;
}

}  // namespace tunnel
