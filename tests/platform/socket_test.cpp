#include "platform/socket.h"

#include <gtest/gtest.h>

#include <atomic>
#include <future>
#include <new>
#include <string>
#include <thread>

namespace platform {
namespace {

using std::chrono::milliseconds;

// IPv4's address family number is the same on both systems.
constexpr int kIpv4 = 2;
constexpr milliseconds kPatience{10000};

std::span<const std::byte> BytesOf(std::string_view text) {
  return std::as_bytes(std::span(text));
}

class SocketTest : public testing::Test {
 protected:
  void SetUp() override { ASSERT_EQ(library_.Start(), 0); }

  static std::shared_ptr<Socket> Make(SocketKind kind) {
    int error = 0;
    std::shared_ptr<Socket> socket = Socket::Create(kind, kIpv4, error);
    EXPECT_EQ(error, 0);
    return socket;
  }
  static std::shared_ptr<Socket> MakeBound(SocketKind kind) {
    std::shared_ptr<Socket> socket = Make(kind);
    EXPECT_EQ(socket->Bind(SocketAddress::Loopback(0)), 0);
    return socket;
  }
  // A connected pair over loopback.
  void Connect() {
    listener_ = MakeBound(SocketKind::Tcp);
    ASSERT_EQ(listener_->Listen(), 0);
    client_ = Make(SocketKind::Tcp);
    ASSERT_EQ(client_->Connect(listener_->LocalAddress(), kPatience), 0);
    int error = 0;
    server_ = listener_->Accept(error);
    ASSERT_NE(server_, nullptr);
  }
  // Closes `socket` while `call` waits on another thread. Returns the call's result.
  template <typename Call>
  static int CloseDuring(Socket& socket, Call call) {
    std::atomic<bool> entered{false};
    int error = 0;
    std::thread caller([&]() {
      entered = true;
      error = call();
    });
    while (!entered) std::this_thread::yield();
    // Nothing reports that the call has started to wait, so allow it some time. On a slow machine
    // the close may come first, which must end the call as well.
    const auto until = std::chrono::steady_clock::now() + milliseconds(30);
    while (std::chrono::steady_clock::now() < until) std::this_thread::yield();
    socket.Close();
    caller.join();
    return error;
  }

  SocketLibrary library_;
  std::shared_ptr<Socket> listener_;
  std::shared_ptr<Socket> client_;
  std::shared_ptr<Socket> server_;
  std::array<std::byte, 64> buffer_{};
};

TEST_F(SocketTest, StartingTheLibraryTwiceIsFine) {
  SocketLibrary other;
  EXPECT_EQ(other.Start(), 0);
  EXPECT_EQ(other.Start(), 0);
}

TEST_F(SocketTest, AddressKnowsItsPortAndFamily) {
  EXPECT_EQ(SocketAddress::Ipv4(0x0A000001, 31080).Port(), 31080);
  EXPECT_EQ(SocketAddress::Loopback(7).Family(), kIpv4);
  EXPECT_EQ(SocketAddress().Port(), 0);
  EXPECT_EQ(SocketAddress().Family(), 0);
}

TEST_F(SocketTest, ResolvesAnAddressInDigits) {
  for (const SocketKind kind : {SocketKind::Tcp, SocketKind::UdpIpv4}) {
    const std::vector<SocketAddress> found = LookUpHost("127.0.0.1", 31080, kind);
    ASSERT_EQ(found.size(), 1U);
    EXPECT_EQ(found[0].Port(), 31080);
    EXPECT_EQ(found[0].Family(), kIpv4);
  }
}

TEST_F(SocketTest, ResolvesAnIpv6AddressForTcpOnly) {
  const std::vector<SocketAddress> found = LookUpHost("::1", 80, SocketKind::Tcp);
  ASSERT_EQ(found.size(), 1U);
  EXPECT_EQ(found[0].Port(), 80);
  EXPECT_NE(found[0].Family(), kIpv4);
  EXPECT_TRUE(LookUpHost("::1", 80, SocketKind::UdpIpv4).empty());
}

TEST_F(SocketTest, FindsNothingForAnInvalidHostName) {
  EXPECT_TRUE(LookUpHost("not a host", 80, SocketKind::Tcp).empty());
}

TEST_F(SocketTest, ResolvingReturnsTheResultOfTheLookUp) {
  std::string asked;
  const auto lookUp = [&asked](const std::string& host, std::uint16_t port, SocketKind) {
    asked = host + ":" + std::to_string(port);
    return std::vector<SocketAddress>{SocketAddress::Loopback(1), SocketAddress::Loopback(2)};
  };
  const std::vector<SocketAddress> found = ResolveHost(
      "relay", 80, SocketKind::Tcp, [] { return false; }, lookUp);
  EXPECT_EQ(asked, "relay:80");
  ASSERT_EQ(found.size(), 2U);
  EXPECT_EQ(found[1].Port(), 2);
  EXPECT_EQ(ResolveHost("127.0.0.1", 80, SocketKind::Tcp, {}).size(), 1U);
  EXPECT_FALSE(ResolveHost("localhost", 80, SocketKind::Tcp, {}).empty());
}

TEST_F(SocketTest, ResolvingEndsWhenCancelledEvenIfTheResolverHangs) {
  std::promise<void> release;
  const std::shared_future<void> released = release.get_future().share();
  std::promise<void> asked;
  std::promise<void> left;
  const auto lookUp = [&](const std::string&, std::uint16_t, SocketKind) {
    asked.set_value();
    released.wait();
    left.set_value();
    return std::vector<SocketAddress>{SocketAddress::Loopback(1)};
  };
  std::atomic<bool> cancelled{false};
  std::thread canceller([&] {
    asked.get_future().wait();
    cancelled = true;
  });
  EXPECT_TRUE(ResolveHost(
                  "relay", 80, SocketKind::Tcp, [&] { return cancelled.load(); }, lookUp)
                  .empty());
  canceller.join();
  release.set_value();
  left.get_future().wait();
}

TEST_F(SocketTest, ALookUpThatThrowsFindsNothing) {
  const auto lookUp = [](const std::string&, std::uint16_t,
                         SocketKind) -> std::vector<SocketAddress> { throw std::bad_alloc(); };
  EXPECT_TRUE(ResolveHost("relay", 80, SocketKind::Tcp, {}, lookUp).empty());
}

TEST_F(SocketTest, CarriesBytesBothWays) {
  Connect();
  EXPECT_EQ(client_->Send(BytesOf("ping")).bytes, 4U);
  EXPECT_EQ(server_->Receive(buffer_).bytes, 4U);
  EXPECT_EQ(std::to_integer<char>(buffer_[3]), 'g');
  EXPECT_EQ(server_->Send(BytesOf("ok")).bytes, 2U);
  EXPECT_EQ(client_->Receive(buffer_).bytes, 2U);
}

TEST_F(SocketTest, ReportsThatThePeerHasClosed) {
  Connect();
  server_->Close();
  const SocketResult result = client_->Receive(buffer_);
  EXPECT_EQ(result.bytes, 0U);
  EXPECT_EQ(result.error, 0);
}

TEST_F(SocketTest, RefusedConnectReturnsTheSystemsCode) {
  const std::shared_ptr<Socket> taken = MakeBound(SocketKind::Tcp);  // bound, not listening
  const int error = Make(SocketKind::Tcp)->Connect(taken->LocalAddress(), kPatience);
  EXPECT_TRUE(error == 111 || error == 10061) << error;
}

TEST_F(SocketTest, SilenceIsATimeout) {
  Connect();
  EXPECT_EQ(client_->SetTimeouts(milliseconds(30), milliseconds(40)), 0);
  EXPECT_TRUE(IsSocketTimeout(client_->Receive(buffer_).error));
  EXPECT_FALSE(IsSocketTimeout(0));
  EXPECT_FALSE(IsSocketTimeout(SocketClosedError()));
}

TEST_F(SocketTest, KeepsItsOptions) {
  Connect();
  EXPECT_EQ(client_->SetTimeouts(milliseconds(8000), milliseconds(7000)), 0);
  EXPECT_EQ(client_->SetNoDelay(), 0);
  EXPECT_EQ(client_->SetKeepAlive(), 0);
  EXPECT_EQ(client_->SetBufferBytes(65536, 131072), 0);
  const Socket::Options options = client_->ReadOptions();
  EXPECT_EQ(options.receiveTimeout, milliseconds(8000));
  EXPECT_EQ(options.sendTimeout, milliseconds(7000));
  EXPECT_TRUE(options.noDelay);
  EXPECT_TRUE(options.keepAlive);
  EXPECT_GE(options.receiveBufferBytes, 65536);
  EXPECT_GE(options.sendBufferBytes, 131072);
}

TEST_F(SocketTest, CarriesDatagrams) {
  const std::shared_ptr<Socket> left = MakeBound(SocketKind::UdpIpv4);
  const std::shared_ptr<Socket> right = MakeBound(SocketKind::UdpIpv4);
  EXPECT_EQ(left->SendTo(BytesOf("hello"), right->LocalAddress()).bytes, 5U);
  SocketAddress from;
  EXPECT_EQ(right->ReceiveFrom(buffer_, from).bytes, 5U);
  EXPECT_EQ(from.Port(), left->LocalAddress().Port());
}

TEST_F(SocketTest, ATooLongDatagramIsAnErrorAndIsDiscarded) {
  const std::shared_ptr<Socket> left = MakeBound(SocketKind::UdpIpv4);
  const std::shared_ptr<Socket> right = MakeBound(SocketKind::UdpIpv4);
  const std::array<std::byte, 65> bytes{};
  SocketAddress from;
  for (const std::size_t size : {65U, 64U, 0U}) {
    EXPECT_EQ(left->SendTo(std::span(bytes).first(size), right->LocalAddress()).bytes, size);
    const SocketResult received = right->ReceiveFrom(buffer_, from);
    EXPECT_EQ(received.bytes, size > buffer_.size() ? 0 : size);
    EXPECT_EQ(received.error != 0, size > buffer_.size()) << received.error;
    EXPECT_FALSE(IsSocketTimeout(received.error) || IsSocketClosed(received.error));
  }
}

TEST_F(SocketTest, CloseWakesABlockedReceive) {
  Connect();
  EXPECT_EQ(CloseDuring(*client_, [&]() { return client_->Receive(buffer_).error; }),
            SocketClosedError());
}

TEST_F(SocketTest, CloseWakesABlockedAccept) {
  listener_ = MakeBound(SocketKind::Tcp);
  ASSERT_EQ(listener_->Listen(), 0);
  EXPECT_EQ(CloseDuring(*listener_,
                        [&]() {
                          int error = 0;
                          EXPECT_EQ(listener_->Accept(error), nullptr);
                          return error;
                        }),
            SocketClosedError());
}

TEST_F(SocketTest, CloseWakesABlockedDatagramReceive) {
  const std::shared_ptr<Socket> socket = MakeBound(SocketKind::UdpIpv4);
  SocketAddress from;
  EXPECT_EQ(CloseDuring(*socket, [&]() { return socket->ReceiveFrom(buffer_, from).error; }),
            SocketClosedError());
}

TEST_F(SocketTest, CloseWakesABlockedSend) {
  Connect();
  const std::vector<std::byte> much(1 << 20);
  EXPECT_EQ(CloseDuring(*client_,
                        [&]() {
                          for (;;) {
                            const SocketResult sent = client_->Send(much);
                            if (sent.bytes == 0) return sent.error;
                          }
                        }),
            SocketClosedError());
}

TEST_F(SocketTest, CloseWakesABlockedConnect) {
  // A listener that never accepts: once its queue is full, the next connect waits.
  listener_ = MakeBound(SocketKind::Tcp);
  ASSERT_EQ(listener_->Listen(), 0);
  std::vector<std::shared_ptr<Socket>> waiting;
  int error = 0;
  while (error == 0 && waiting.size() < 100) {
    waiting.push_back(Make(SocketKind::Tcp));
    Socket& next = *waiting.back();
    error = CloseDuring(next, [&]() { return next.Connect(listener_->LocalAddress(), kPatience); });
  }
  EXPECT_EQ(error, SocketClosedError());
}

TEST_F(SocketTest, ConnectGivesUpAfterItsLimit) {
  listener_ = MakeBound(SocketKind::Tcp);
  ASSERT_EQ(listener_->Listen(), 0);
  std::vector<std::shared_ptr<Socket>> waiting;
  const milliseconds limit(150);
  std::chrono::steady_clock::time_point begin;
  int error = 0;
  while (error == 0 && waiting.size() < 100) {
    waiting.push_back(Make(SocketKind::Tcp));
    begin = std::chrono::steady_clock::now();
    error = waiting.back()->Connect(listener_->LocalAddress(), limit);
  }
  EXPECT_TRUE(IsSocketTimeout(error)) << error;
  EXPECT_GE(std::chrono::steady_clock::now() - begin, limit);
}

// Connect() uses non-blocking mode internally and must restore blocking mode.
TEST_F(SocketTest, AConnectedSocketBlocks) {
  Connect();
  const milliseconds wait(100);
  client_->SetTimeouts(wait, wait);
  const auto begin = std::chrono::steady_clock::now();
  EXPECT_TRUE(IsSocketTimeout(client_->Receive(buffer_).error));
  EXPECT_GE(std::chrono::steady_clock::now() - begin, wait - milliseconds(10));
}

// The close may come before, during or inside the call.
TEST_F(SocketTest, CloseAtAnyMomentEndsTheReceive) {
  for (int round = 0; round < 100; ++round) {
    Connect();
    std::atomic<bool> go{false};
    int error = 0;
    std::thread receiver([&]() {
      while (!go) {
      }
      error = client_->Receive(buffer_).error;
    });
    go = true;
    for (int spin = 0; spin < round * 50; ++spin)
      std::atomic_signal_fence(std::memory_order_seq_cst);
    client_->Close();
    receiver.join();
    EXPECT_EQ(error, SocketClosedError());
  }
}

TEST_F(SocketTest, EveryCallOnAClosedSocketReportsIt) {
  Connect();
  client_->Close();
  client_->Close();
  const int closed = SocketClosedError();
  SocketAddress address;
  int error = 0;
  EXPECT_EQ(client_->Send(BytesOf("x")).error, closed);
  EXPECT_EQ(client_->Receive(buffer_).error, closed);
  EXPECT_EQ(client_->SendTo(BytesOf("x"), SocketAddress::Loopback(9)).error, closed);
  EXPECT_EQ(client_->ReceiveFrom(buffer_, address).error, closed);
  EXPECT_EQ(client_->Connect(SocketAddress::Loopback(9), kPatience), closed);
  EXPECT_EQ(client_->Bind(SocketAddress::Loopback(0)), closed);
  EXPECT_EQ(client_->Listen(), closed);
  EXPECT_EQ(client_->Accept(error), nullptr);
  EXPECT_EQ(error, closed);
  EXPECT_EQ(client_->SetNoDelay(), closed);
  EXPECT_EQ(client_->LocalAddress().Port(), 0);
}

}  // namespace
}  // namespace platform
