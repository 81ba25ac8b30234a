#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <future>
#include <stdexcept>
#include <string>
#include <vector>

#include "tunnel/relay/test_relay.h"
#include "tunnel/relay/websocket_relay.h"

// Resolving and connecting to the relay's host: its addresses in order, and a slow look-up.
namespace tunnel {
namespace {

class WebSocketRelayHosts : public testing::Test {
 protected:
  void SetUp() override { ASSERT_EQ(library_.Start(), 0); }

  platform::SocketLibrary library_;  // for sockets of the tests' own
};

// A port on which nothing listens as long as the socket exists.
std::shared_ptr<platform::Socket> MakeDeadEnd() {
  int error = 0;
  auto socket = platform::Socket::Create(platform::SocketKind::Tcp,
                                         platform::SocketAddress::Loopback(0).Family(), error);
  EXPECT_EQ(socket->Bind(platform::SocketAddress::Loopback(0)), 0);
  return socket;
}

// Resolves every host to `addresses`.
platform::HostLookup LookupOf(std::vector<platform::SocketAddress> addresses) {
  return [addresses = std::move(addresses)](const std::string&, std::uint16_t,
                                            platform::SocketKind) { return addresses; };
}

TEST_F(WebSocketRelayHosts, TriesAHostsAddressesInOrder) {
  TestRelay first;
  TestRelay second;
  const auto dead = MakeDeadEnd();
  WebSocketRelay relay;
  relay.Connect(L"ws://relay.example/api", {},
                LookupOf({dead->LocalAddress(), platform::SocketAddress::Loopback(first.Port()),
                          platform::SocketAddress::Loopback(second.Port())}));
  EXPECT_TRUE(relay.IsConnected());
  EXPECT_TRUE(first.WaitForConnections(1));
  EXPECT_TRUE(second.Requests().empty());
  ASSERT_EQ(first.Requests().size(), 1U);
  EXPECT_NE(first.Requests()[0].find("\r\nHost: relay.example\r\n"), std::string::npos);
}

TEST_F(WebSocketRelayHosts, WhenNoAddressAnswersTheLastErrorIsReported) {
  const auto dead = MakeDeadEnd();
  // No system connects a stream to the limited broadcast address.
  const platform::SocketAddress nobody = platform::SocketAddress::Ipv4(0xFFFFFFFF, 9);
  for (const auto& addresses :
       {std::vector{nobody, dead->LocalAddress()}, std::vector{dead->LocalAddress(), nobody}}) {
    WebSocketRelay relay;
    int error = 0;
    const auto probe = platform::Socket::Create(platform::SocketKind::Tcp, nobody.Family(), error);
    const int last = probe->Connect(addresses.back(), std::chrono::seconds(8));
    try {
      relay.Connect(L"ws://relay.example:8080/api", {}, LookupOf(addresses));
      FAIL();
    } catch (const std::runtime_error& failure) {
      EXPECT_EQ(failure.what(),
                "Relay TCP connect failed to relay.example:8080, error " + std::to_string(last));
    }
  }
}

TEST_F(WebSocketRelayHosts, ALookUpIsAbandonedWhenCancelled) {
  std::promise<void> release;
  std::promise<void> left;
  std::atomic<bool> cancelled{false};
  const auto isCancelled = [&] { return cancelled.load(); };
  const auto lookUp = [&, released = release.get_future().share()](
                          const std::string&, std::uint16_t, platform::SocketKind) {
    cancelled = true;
    released.wait();
    left.set_value();
    return std::vector<platform::SocketAddress>{};
  };
  WebSocketRelay relay;
  EXPECT_THROW(relay.Connect(L"ws://relay.example/api", isCancelled, lookUp), std::runtime_error);
  release.set_value();
  left.get_future().wait();
}

}  // namespace
}  // namespace tunnel
