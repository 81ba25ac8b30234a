#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <stdexcept>
#include <thread>

#include "tunnel/packets/packet.h"
#include "tunnel/relay/fake_datagrams.h"
#include "tunnel/relay/fake_relay_host.h"
#include "tunnel/relay/udp_datagram.h"
#include "tunnel/relay/udp_relay.h"

namespace tunnel {
namespace {

using std::chrono::milliseconds;

constexpr std::uint64_t kGrantedToken = 0x1122334455667788;

// The relay's side on a loopback port, driven by the test.
class LoopbackRelay {
 public:
  LoopbackRelay() {
    int error = library_.Start();
    socket_ = platform::Socket::Create(platform::SocketKind::UdpIpv4,
                                       platform::SocketAddress::Loopback(0).Family(), error);
    if (socket_ == nullptr || socket_->Bind(platform::SocketAddress::Loopback(0)) != 0) {
      throw std::runtime_error("no loopback port");
    }
    socket_->SetTimeouts(std::chrono::seconds(10), std::chrono::seconds(10));
  }
  [[nodiscard]] std::wstring ServerUrl() const {
    return L"http://127.0.0.1:" + std::to_wstring(socket_->LocalAddress().Port());
  }
  // Empty after a time-out.
  Bytes Receive() {
    std::array<std::byte, 2000> buffer;
    const platform::SocketResult got = socket_->ReceiveFrom(buffer, client_);
    return Bytes(buffer.begin(), buffer.begin() + static_cast<std::ptrdiff_t>(got.bytes));
  }
  // Sends to the last sender.
  void Send(const Bytes& datagram) { socket_->SendTo(datagram, client_); }

 private:
  platform::SocketLibrary library_;
  std::shared_ptr<platform::Socket> socket_;
  platform::SocketAddress client_;
};

class UdpRelayLoopbackTest : public testing::Test {
 protected:
  UdpRelayLoopbackTest() {
    host_.inbound = [this](std::span<std::byte> packet) {
      // The AddressSanitizer aborts if these are not readable.
      TouchEach({packet.data() + packet.size(), kReadableBehindPacket});
      inboundBytes_ += packet.size();
    };
    host_.keepGoing = [this]() { return keepGoing_.load(); };
  }
  void StartAcknowledged() {
    std::thread answer([this]() {
      hello_ = peer_.Receive();
      peer_.Send(AcknowledgementOf(kGrantedToken));
    });
    relay_.StartUdpRelay({peer_.ServerUrl(), L"C1", L"ENG-1"});
    answer.join();
  }

  LoopbackRelay peer_;
  Bytes hello_;
  std::atomic<bool> keepGoing_{true};
  std::atomic<std::size_t> inboundBytes_{0};
  FakeRelayHost host_;
  SocketUdpRelay relay_{host_, RealUdpNetwork()};
};

TEST_F(UdpRelayLoopbackTest, CarriesPacketsBothWays) {
  StartAcknowledged();
  ASSERT_TRUE(relay_.IsReady());
  EXPECT_EQ(hello_, BuildHello(L"C1", L"ENG-1"));
  ASSERT_TRUE(relay_.SendUdpPacket(Pattern(1330)));
  EXPECT_EQ(peer_.Receive(), PacketDatagram(kGrantedToken, Pattern(1330)));
  peer_.Send(PacketDatagram(kGrantedToken, Pattern(1387)));
  while (inboundBytes_ < 1387) std::this_thread::yield();
}

TEST_F(UdpRelayLoopbackTest, ADatagramThatIsTooLongIsIgnored) {
  StartAcknowledged();
  for (const std::size_t size : {1388U, 3000U})
    peer_.Send(PacketDatagram(kGrantedToken, Pattern(size)));
  peer_.Send(PacketDatagram(kGrantedToken, Pattern(100)));
  while (inboundBytes_ < 100) std::this_thread::yield();
  EXPECT_EQ(inboundBytes_, 100U);
}

TEST_F(UdpRelayLoopbackTest, ClosingWakesTheReceiverAtOnce) {
  StartAcknowledged();
  const auto before = std::chrono::steady_clock::now();
  relay_.Close();
  relay_.Join();
  EXPECT_LT(std::chrono::steady_clock::now() - before, milliseconds(1500));
}

TEST_F(UdpRelayLoopbackTest, ClosingEndsAnUnansweredStart) {
  std::thread closer([this]() {
    hello_ = peer_.Receive();
    keepGoing_ = false;
    relay_.Close();
  });
  relay_.StartUdpRelay({peer_.ServerUrl(), L"C1", L"ENG-1"});
  closer.join();
  EXPECT_FALSE(relay_.IsReady());
  EXPECT_FALSE(hello_.empty());
}

TEST(RelayDatagramSocket, HasLargeBuffersAndTheTimeoutsItIsGiven) {
  LoopbackRelay peer;
  RelayDatagramSocket socket(peer.ServerUrl(), milliseconds(900));
  platform::Socket::Options options = socket.SocketOptions();
  EXPECT_EQ(options.receiveTimeout, milliseconds(900));
  EXPECT_EQ(options.sendTimeout, milliseconds(900));
  // Systems grant different sizes, but far more than their default.
  int error = 0;
  const auto plain = platform::Socket::Create(platform::SocketKind::UdpIpv4,
                                              platform::SocketAddress::Loopback(0).Family(), error);
  EXPECT_GT(options.receiveBufferBytes, plain->ReadOptions().receiveBufferBytes);
  EXPECT_GT(options.sendBufferBytes, plain->ReadOptions().sendBufferBytes);
  socket.SetReceiveTimeout(milliseconds(2000));
  options = socket.SocketOptions();
  EXPECT_EQ(options.receiveTimeout, milliseconds(2000));
  EXPECT_EQ(options.sendTimeout, milliseconds(900));
}

TEST(RelayDatagramSocket, FailsForAnUnknownHostOrAnInvalidAddress) {
  struct Row {
    std::wstring serverUrl;
    const char* error;
  };
  const Row rows[] = {
      // Resolvers reject a label of 70 letters without a query.
      {L"http://" + std::wstring(70, L'a') + L":31080", "getaddrinfo failed for UDP relay host."},
      {L"http://[::1]:31080", "getaddrinfo failed for UDP relay host."},  // no IPv4 address
      {L"ftp://127.0.0.1", "WinHttpCrackUrl failed for URL: ftp://127.0.0.1/"},
  };
  for (const Row& row : rows) {
    try {
      const RelayDatagramSocket socket(row.serverUrl, milliseconds(900));
      ADD_FAILURE() << row.error;
    } catch (const std::runtime_error& error) {
      EXPECT_STREQ(error.what(), row.error);
    }
  }
}

}  // namespace
}  // namespace tunnel
