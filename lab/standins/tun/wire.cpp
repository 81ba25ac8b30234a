#include <fcntl.h>
#include <linux/if.h>
#include <poll.h>
#include <sched.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <map>
#include <optional>
#include <random>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "tun/tun_device.h"

// A bad line between two network namespaces: packets that enter the TUN device at one end leave the
// other end late, out of order or never. They keep their order unless held back.
//
//   wire --a NAMESPACE --b NAMESPACE --device NAME [--delay MS] [--loss PERMILLE]
//        [--reorder PERMILLE] [--hold MS] [--rate KBIT] [--queue BYTES] [--seed N]
//
// The device has the same name at both ends. --reorder is the share of packets held back for
// another
// --hold, so that later ones overtake them. --rate limits each direction in kbit/s (0: no limit),
// counted over IP packets; waiting packets stand in a queue of --queue bytes and are lost when it
// is full, as at a router. Prints "ready"; SIGTERM and SIGINT end it, and it then prints its counts
// as one line of JSON.
namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

constexpr int kMtu = 1500;
constexpr int kPermille = 1000;
constexpr std::size_t kQueuedPackets = 20000;  // what a line of 200 ms holds at full speed
constexpr int kBatch = 64;  // packets from one end before the other end is served

struct Options {
  std::string a, b, device;
  milliseconds delay{0}, hold{20};
  int lossPermille = 0;
  int reorderPermille = 0;
  int kilobitsPerSecond = 0;
  int queueBytes = 256 * 1024;
  unsigned seed = 1;
};

void Set(Options& options, std::string_view name, const std::string& value) {
  if (name == "--a") {
    options.a = value;
  } else if (name == "--b") {
    options.b = value;
  } else if (name == "--device") {
    options.device = value;
  } else if (name == "--delay") {
    options.delay = milliseconds(tun::ParseInteger(value, 0, 60000));
  } else if (name == "--hold") {
    options.hold = milliseconds(tun::ParseInteger(value, 0, 60000));
  } else if (name == "--loss") {
    options.lossPermille = tun::ParseInteger(value, 0, kPermille);
  } else if (name == "--reorder") {
    options.reorderPermille = tun::ParseInteger(value, 0, kPermille);
  } else if (name == "--rate") {
    options.kilobitsPerSecond = tun::ParseInteger(value, 0, 1'000'000);
  } else if (name == "--queue") {
    options.queueBytes = tun::ParseInteger(value, kMtu, 1 << 30);
  } else if (name == "--seed") {
    options.seed = static_cast<unsigned>(tun::ParseInteger(value, 0, 1 << 30));
  } else {
    throw std::runtime_error("Unknown option " + std::string(name));
  }
}

Options ParseOptions(std::span<char*> arguments) {
  Options options;
  for (std::size_t i = 1; i < arguments.size(); i += 2) {
    const std::string_view name = arguments[i];
    if (i + 1 == arguments.size()) throw std::runtime_error("No value for " + std::string(name));
    Set(options, name, arguments[i + 1]);
  }
  if (options.a.empty() || options.b.empty() || options.device.empty() ||
      options.device.size() >= IFNAMSIZ) {
    throw std::runtime_error(
        "Usage: wire --a NAMESPACE --b NAMESPACE --device NAME [--delay MS] [--loss PERMILLE] "
        "[--reorder PERMILLE] [--hold MS] [--rate KBIT] [--queue BYTES] [--seed N]");
  }
  return options;
}

tun::File OpenEnd(const std::string& networkNamespace, const std::string& device) {
  const std::string path = "/run/netns/" + networkNamespace;
  const tun::File file(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
  // A TUN device belongs to the namespace in which it is created, even after this thread has left
  // it.
  if (!file || ::setns(file.Get(), CLONE_NEWNET) != 0) tun::Fail("Entering " + path);
  return tun::OpenTun(device, kMtu);
}

// The bottleneck of one direction: a queue of bytes before a link with a fixed rate.
class Bottleneck {
 public:
  explicit Bottleneck(const Options& options)
      : nanosecondsPerByte_(options.kilobitsPerSecond == 0 ? 0 : 8e6 / options.kilobitsPerSecond),
        queueBytes_(options.queueBytes) {}

  // The time at which a packet that arrives now has left completely; empty if the queue is full.
  std::optional<Clock::time_point> Pass(std::size_t bytes, Clock::time_point now) {
    if (nanosecondsPerByte_ == 0) return now;
    const Clock::time_point begins = std::max(now, isFreeAt_);
    if (begins - now + TimeOf(bytes) > TimeOf(queueBytes_)) return std::nullopt;
    isFreeAt_ = begins + TimeOf(bytes);
    return isFreeAt_;
  }

 private:
  template <typename Bytes>
  [[nodiscard]] Clock::duration TimeOf(Bytes bytes) const {
    return std::chrono::nanoseconds(
        static_cast<std::int64_t>(nanosecondsPerByte_ * static_cast<double>(bytes)));
  }

  double nanosecondsPerByte_;
  int queueBytes_;
  Clock::time_point isFreeAt_;
};

// One direction of the line.
class Lane {
 public:
  Lane(const Options& options, unsigned seed)
      : options_(options), bottleneck_(options), random_(seed) {}

  void Take(std::span<const std::uint8_t> packet, Clock::time_point now) {
    if (Happens(options_.lossPermille) || waiting_.size() == kQueuedPackets) {
      ++lost_;
      return;
    }
    const auto passed = bottleneck_.Pass(packet.size(), now);
    if (!passed) {
      ++lost_;
      return;
    }
    auto leaves = *passed + options_.delay;
    if (Happens(options_.reorderPermille)) {
      leaves += options_.hold;
      ++heldBack_;
    }
    // A multimap keeps packets with the same time in their order of arrival.
    waiting_.emplace(leaves, std::vector<std::uint8_t>(packet.begin(), packet.end()));
  }

  void Release(const tun::File& end, Clock::time_point now) {
    while (!waiting_.empty() && waiting_.begin()->first <= now) {
      const auto& packet = waiting_.begin()->second;
      if (::write(end.Get(), packet.data(), packet.size()) >= 0) {
        ++carried_;
      } else {
        ++lost_;
      }
      waiting_.erase(waiting_.begin());
    }
  }

  // The time at which the next packet leaves, at most `otherwise`.
  [[nodiscard]] Clock::time_point Next(Clock::time_point otherwise) const {
    return waiting_.empty() ? otherwise : std::min(otherwise, waiting_.begin()->first);
  }

  [[nodiscard]] std::string Report() const {
    return "{\"carried\":" + std::to_string(carried_) + ",\"lost\":" + std::to_string(lost_) +
           ",\"heldBack\":" + std::to_string(heldBack_) + "}";
  }

 private:
  bool Happens(int permille) {
    return permille > 0 && std::uniform_int_distribution<int>(1, kPermille)(random_) <= permille;
  }

  const Options& options_;
  Bottleneck bottleneck_;
  std::mt19937 random_;
  std::multimap<Clock::time_point, std::vector<std::uint8_t>> waiting_;
  long carried_ = 0;
  long lost_ = 0;
  long heldBack_ = 0;
};

class Wire {
 public:
  explicit Wire(const Options& options)
      : a_(OpenEnd(options.a, options.device)),
        b_(OpenEnd(options.b, options.device)),
        fromA_(options, options.seed),
        fromB_(options, options.seed + 1) {}

  // Returns when a signal arrives.
  void Run(const tun::File& signals) {
    std::array<pollfd, 3> files = {
        {{a_.Get(), POLLIN, 0}, {b_.Get(), POLLIN, 0}, {signals.Get(), POLLIN, 0}}};
    for (;;) {
      Wait(files);
      if (files[2].revents != 0) return;
      if (((files[0].revents | files[1].revents) & (POLLERR | POLLHUP)) != 0) {
        throw std::runtime_error("A device is gone");
      }
      if (files[0].revents != 0) Move(a_, fromA_);
      if (files[1].revents != 0) Move(b_, fromB_);
      const auto now = Clock::now();
      fromA_.Release(b_, now);
      fromB_.Release(a_, now);
    }
  }

  [[nodiscard]] std::string Report() const {
    return "{\"fromA\":" + fromA_.Report() + ",\"fromB\":" + fromB_.Report() + "}";
  }

 private:
  void Wait(std::span<pollfd> files) const {
    const auto now = Clock::now();
    const auto longest = now + std::chrono::seconds(1);
    const auto wait = std::max(fromA_.Next(fromB_.Next(longest)) - now, Clock::duration::zero());
    const auto nanoseconds = std::chrono::nanoseconds(wait).count();
    const timespec limit = {nanoseconds / 1'000'000'000, nanoseconds % 1'000'000'000};
    if (::ppoll(files.data(), files.size(), &limit, nullptr) >= 0) return;
    if (errno != EINTR) tun::Fail("Waiting");
    // A failed poll leaves the old results in place.
    for (pollfd& file : files) file.revents = 0;
  }

  void Move(const tun::File& from, Lane& lane) {
    const auto now = Clock::now();
    for (int i = 0; i < kBatch; ++i) {
      const ssize_t bytes = ::read(from.Get(), buffer_.data(), buffer_.size());
      if (bytes <= 0) return;
      if (buffer_[0] >> 4U != 4) continue;  // the kernel's IPv6 solicitations
      lane.Take(std::span(buffer_).first(static_cast<std::size_t>(bytes)), now);
    }
  }

  tun::File a_, b_;
  Lane fromA_, fromB_;
  std::array<std::uint8_t, 65536> buffer_ = {};
};

}  // namespace

int main(int argc, char** argv) {
  try {
    const Options options = ParseOptions(std::span(argv, static_cast<std::size_t>(argc)));
    const tun::File signals = tun::OpenSignals();
    Wire wire(options);
    std::puts("ready");
    std::fflush(stdout);
    wire.Run(signals);
    std::puts(wire.Report().c_str());
    return 0;
  } catch (const std::exception& error) {
    std::fprintf(stderr, "wire: %s\n", error.what());
    return 1;
  }
}
