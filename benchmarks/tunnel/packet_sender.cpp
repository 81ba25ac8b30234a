#include "benchmarks/tunnel/packet_sender.h"

#include <netinet/udp.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <vector>

#include "benchmarks/tunnel/ends.h"

namespace bench {
namespace {

using Clock = std::chrono::steady_clock;

// The maximum fills half of a TUN device's queue and keeps both processors busy; the minimum fits
// the system's default socket buffer.
constexpr std::uint64_t kMostUnderWay = 256;
constexpr std::uint64_t kFewestUnderWay = 64;
constexpr std::size_t kBurstPackets = 48;  // of the largest size, they are one send of the system
constexpr std::chrono::milliseconds kLossTime{
    50};  // longer than a busy machine keeps a thread waiting

class Sender {
 public:
  explicit Sender(const SendPlan& plan)
      : plan_(plan), burst_(kBurstPackets * plan.payloadBytes), begin_(Clock::now()) {
    const timeval wait = {0, std::chrono::microseconds(kLossTime).count()};
    if (::setsockopt(plan.socket, SOL_SOCKET, SO_RCVTIMEO, &wait, sizeof(wait)) != 0) {
      tun::Fail("Time-out");
    }
  }

  SendResult Run() {
    Clock::time_point now = begin_;
    for (; now - begin_ < plan_.duration; now = Clock::now()) {
      TakeCredits();
      const std::uint64_t room = Room();
      if (room > 0) SendBurst(std::min<std::size_t>(room, kBurstPackets));
    }
    return {received_, lost_, now - begin_};
  }

 private:
  [[nodiscard]] std::uint64_t Room() const { return window_ - std::min(window_, sent_ - arrived_); }

  // Reads every credit available; with the window closed, waits for one.
  void TakeCredits() {
    Message message;
    bool isWaiting = Room() == 0;
    for (;;) {
      const ssize_t bytes = ::recv(plan_.socket, &message, sizeof(message),
                                   MSG_TRUNC | (isWaiting ? 0 : MSG_DONTWAIT));
      if (bytes < 0) {
        // Everything in flight, or its credit, is lost.
        if (isWaiting && errno == EAGAIN) arrived_ = sent_;
        return;
      }
      if (bytes != sizeof(message) || message.kind != MessageKind::Credit ||
          message.run != plan_.run) {
        continue;
      }
      TakeCredit(message);
      isWaiting = false;
    }
  }

  void TakeCredit(const Message& credit) {
    if (credit.sequence <= highest_) return;  // an older one
    highest_ = credit.sequence;
    arrived_ = std::max(arrived_, highest_);
    received_ = credit.count;
    const std::uint64_t lost = highest_ - std::min(received_, highest_);
    FitWindow(lost > lost_);
    lost_ = lost;
  }

  // Doubles after each window that arrived whole and halves after the first that did not: then some
  // queue on the path is too short for so many. One step per window.
  void FitWindow(bool hasLost) {
    if (highest_ <= fittedAt_) return;
    if (hasLost) {
      window_ = std::max(kFewestUnderWay, window_ / 2);
    } else if (lost_ == 0) {
      window_ = std::min(kMostUnderWay, window_ * 2);
    }
    fittedAt_ = sent_;
  }

  void SendBurst(std::size_t packets) {
    for (std::size_t i = 0; i < packets; ++i) {
      const Message message = {MessageKind::Data, plan_.run, sent_ + i + 1, 0, 0};
      std::memcpy(&burst_[i * plan_.payloadBytes], &message, sizeof(message));
    }
    sent_ += packets;
    if (canSegment_ && SendSegments(packets)) return;
    for (std::size_t i = 0; i < packets; ++i) {
      (void)::sendto(plan_.socket, &burst_[i * plan_.payloadBytes], plan_.payloadBytes, 0,
                     reinterpret_cast<const sockaddr*>(&plan_.to), sizeof(plan_.to));
    }
  }

  // Lets the system cut one large datagram into packets (UDP_SEGMENT), at a fraction of the cost of
  // a call per packet. Older kernels refuse that for devices without checksum offload.
  bool SendSegments(std::size_t packets) {
    iovec part = {burst_.data(), packets * plan_.payloadBytes};
    alignas(cmsghdr) std::array<std::byte, CMSG_SPACE(sizeof(std::uint16_t))> control = {};
    sockaddr_in to = plan_.to;
    msghdr message = {};
    message.msg_name = &to;
    message.msg_namelen = sizeof(to);
    message.msg_iov = &part;
    message.msg_iovlen = 1;
    message.msg_control = control.data();
    message.msg_controllen = control.size();
    cmsghdr* const option = CMSG_FIRSTHDR(&message);
    option->cmsg_level = SOL_UDP;
    option->cmsg_type = UDP_SEGMENT;
    option->cmsg_len = CMSG_LEN(sizeof(std::uint16_t));
    const auto size = static_cast<std::uint16_t>(plan_.payloadBytes);
    std::memcpy(CMSG_DATA(option), &size, sizeof(size));
    if (::sendmsg(plan_.socket, &message, 0) >= 0) return true;
    canSegment_ = errno != EIO && errno != EINVAL;
    return canSegment_;
  }

  const SendPlan& plan_;
  std::vector<std::byte> burst_;
  const Clock::time_point begin_;
  std::uint64_t sent_ = 0;
  std::uint64_t highest_ = 0;  // sequence named by a credit
  std::uint64_t arrived_ = 0;  // packets up to here arrived or were given up
  std::uint64_t received_ = 0;
  std::uint64_t lost_ = 0;
  std::uint64_t window_ = kFewestUnderWay;
  std::uint64_t fittedAt_ = 0;  // the sequence sent when the window was last adjusted
  bool canSegment_ = true;
};

}  // namespace

SendResult SendPackets(const SendPlan& plan) {
  return Sender(plan).Run();
}

}  // namespace bench
