#include <sys/socket.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <exception>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>
#include <vector>

#include "benchmarks/tunnel/ends.h"
#include "benchmarks/tunnel/packet_sender.h"

// Measures how many UDP packets of one size the tunnel carries per second.
//
//   packets serve PORT
//   packets up|down ADDRESS PORT IP_BYTES MILLISECONDS
//
// The rule, the same for every contestant, is a closed loop: 64 packets in flight, then 128 and 256
// as long as none is lost, half as many after a loss; the receiving end gives credit for every 32
// packets that arrived. So the sender finds the tunnel's speed at once, and no contestant spends
// time on packets that the system drops. The result counts the packets received while the sender
// was sending. Prints one line of JSON.
//
// The measurement starts at the engineer's end in both directions, because the tunnel admits
// packets only as answers to others.
namespace {

using bench::Message;
using bench::MessageKind;

constexpr std::size_t kHeaderBytes = 28;  // IPv4 and UDP
constexpr std::size_t kBatch = 64;
constexpr int kRequestTries = 20;

// The receiving end of one measurement: counts, and gives credit.
class Sink {
 public:
  explicit Sink(std::uint32_t run) : run_(run) {}

  [[nodiscard]] std::uint32_t Run() const { return run_; }
  void Take(int socket, const Message& data, const sockaddr_in& from) {
    ++count_;
    if (data.sequence > highest_) highest_ = data.sequence;
    if (highest_ - credited_ < bench::kPacketsPerCredit) return;
    credited_ = highest_;
    const Message credit = {MessageKind::Credit, run_, highest_, count_, 0};
    (void)::sendto(socket, &credit, sizeof(credit), 0, reinterpret_cast<const sockaddr*>(&from),
                   sizeof(from));
  }

 private:
  std::uint32_t run_;
  std::uint64_t highest_ = 0;
  std::uint64_t count_ = 0;
  std::uint64_t credited_ = 0;
};

class Receiver {
 public:
  explicit Receiver(int socket) : socket_(socket) {
    for (std::size_t i = 0; i < kBatch; ++i) {
      parts_[i] = {slots_[i].data(), slots_[i].size()};
      messages_[i].msg_hdr.msg_iov = &parts_[i];
      messages_[i].msg_hdr.msg_iovlen = 1;
      messages_[i].msg_hdr.msg_name = &from_[i];
    }
  }

  // Waits for one datagram or the socket's time-out. Returns the number of datagrams.
  std::size_t Receive() {
    for (mmsghdr& message : messages_) message.msg_hdr.msg_namelen = sizeof(sockaddr_in);
    const int count = ::recvmmsg(socket_, messages_.data(), kBatch, MSG_WAITFORONE, nullptr);
    return count > 0 ? static_cast<std::size_t>(count) : 0;
  }

  [[nodiscard]] std::optional<Message> At(std::size_t index) const {
    Message message;
    if (messages_[index].msg_len < sizeof(message)) return std::nullopt;
    std::memcpy(&message, slots_[index].data(), sizeof(message));
    return message;
  }
  [[nodiscard]] const sockaddr_in& From(std::size_t index) const { return from_[index]; }

 private:
  const int socket_;
  std::array<std::array<std::byte, 2048>, kBatch> slots_ = {};
  std::array<iovec, kBatch> parts_ = {};
  std::array<sockaddr_in, kBatch> from_ = {};
  std::array<mmsghdr, kBatch> messages_ = {};
};

void SetTimeout(int socket, std::chrono::microseconds time) {
  const timeval wait = {time.count() / 1'000'000, time.count() % 1'000'000};
  if (::setsockopt(socket, SOL_SOCKET, SO_RCVTIMEO, &wait, sizeof(wait)) != 0) {
    tun::Fail("Time-out");
  }
}

void AnswerRequest(int socket, const Message& request, const sockaddr_in& from) {
  if (request.count < sizeof(Message) || request.count > bench::kMaxPayloadBytes) return;
  const bench::SendResult result =
      bench::SendPackets({socket, from, request.run, static_cast<std::size_t>(request.count),
                          std::chrono::nanoseconds(request.durationNs)});
  const Message answer = {MessageKind::Result, request.run, result.lost, result.received,
                          static_cast<std::uint64_t>(result.time.count())};
  // Sent behind the last packets, and repeated in case it is lost.
  for (int i = 0; i < 3; ++i) {
    (void)::sendto(socket, &answer, sizeof(answer), 0, reinterpret_cast<const sockaddr*>(&from),
                   sizeof(from));
  }
  SetTimeout(socket, std::chrono::microseconds(0));
}

[[noreturn]] void Serve(std::uint16_t port) {
  const tun::File socket = bench::BindUdp(port);
  Receiver receiver(socket.Get());
  Sink sink(0);
  std::uint32_t answered = 0;
  bench::SayReady();
  for (;;) {
    const std::size_t count = receiver.Receive();
    for (std::size_t i = 0; i < count; ++i) {
      const auto message = receiver.At(i);
      if (!message) continue;
      if (message->kind == MessageKind::Data) {
        if (message->run != sink.Run()) sink = Sink(message->run);
        sink.Take(socket.Get(), *message, receiver.From(i));
      } else if (message->kind == MessageKind::RequestDown && message->run != answered) {
        answered = message->run;  // the client may have asked more than once
        AnswerRequest(socket.Get(), *message, receiver.From(i));
      }
    }
  }
}

bench::SendResult MeasureDown(const bench::SendPlan& plan) {
  const Message request = {MessageKind::RequestDown, plan.run, 0, plan.payloadBytes,
                           static_cast<std::uint64_t>(plan.duration.count())};
  SetTimeout(plan.socket, std::chrono::milliseconds(100));
  Receiver receiver(plan.socket);
  Sink sink(plan.run);
  bool hasBegun = false;
  for (int tries = 0; tries < kRequestTries;) {
    if (!hasBegun) (void)::send(plan.socket, &request, sizeof(request), 0);
    const std::size_t count = receiver.Receive();
    if (count == 0) ++tries;
    for (std::size_t i = 0; i < count; ++i) {
      const auto message = receiver.At(i);
      if (!message || message->run != plan.run) continue;
      hasBegun = true;
      if (message->kind == MessageKind::Data) sink.Take(plan.socket, *message, plan.to);
      if (message->kind == MessageKind::Result) {
        return {message->count, message->sequence, std::chrono::nanoseconds(message->durationNs)};
      }
    }
  }
  throw std::runtime_error("No packet came down, or the result did not");
}

void Measure(const std::vector<std::string>& words) {
  const auto port = static_cast<std::uint16_t>(tun::ParseInteger(words[2], 1, 65535));
  const auto ipBytes =
      static_cast<std::size_t>(tun::ParseInteger(words[3], kHeaderBytes + sizeof(Message), 1500));
  const std::chrono::milliseconds time(tun::ParseInteger(words[4], 1, 60000));
  const tun::File socket = bench::BindUdp(0);
  bench::SendPlan plan = {socket.Get(), bench::AddressOf(words[1], port), 0, ipBytes - kHeaderBytes,
                          time};
  bench::ConnectTo(socket, plan.to);
  plan.run = static_cast<std::uint32_t>(
      std::chrono::steady_clock::now().time_since_epoch().count() / 1000);
  const bench::SendResult result = words[0] == "up" ? bench::SendPackets(plan) : MeasureDown(plan);
  const std::chrono::duration<double> seconds = result.time;
  std::printf("{\"received\":%llu,\"lost\":%llu,\"seconds\":%.6f}\n",
              static_cast<unsigned long long>(result.received),
              static_cast<unsigned long long>(result.lost), seconds.count());
}

}  // namespace

int main(int argc, char** argv) {
  try {
    const std::vector<std::string> words(argv + 1, argv + argc);
    if (words.size() == 2 && words[0] == "serve") {
      Serve(static_cast<std::uint16_t>(tun::ParseInteger(words[1], 1, 65535)));
    }
    if (words.size() != 5 || (words[0] != "up" && words[0] != "down")) {
      throw std::runtime_error(
          "usage: packets serve PORT | up|down ADDRESS PORT IP_BYTES MILLISECONDS");
    }
    Measure(words);
    return 0;
  } catch (const std::exception& error) {
    std::fprintf(stderr, "packets: %s\n", error.what());
    return 1;
  }
}
