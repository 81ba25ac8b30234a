#include "tunnel/relay/websocket_relay.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <random>
#include <stdexcept>
#include <thread>

#include "tunnel/packets/packet.h"
#include "tunnel/relay/test_relay.h"

namespace tunnel {
namespace {

constexpr std::size_t kCloseRounds = RACE_ROUNDS;
constexpr char kUpgrade[] = "HTTP/1.1 101 Switching Protocols\r\n\r\n";

TEST(SendAll, ContinuesAfterShortSendsUntilAllIsSent) {
  std::vector<std::size_t> slices;
  Bytes sent;
  const auto send = [&](std::span<const std::byte> slice) {
    slices.push_back(slice.size());
    const std::size_t taken = std::min<std::size_t>(slice.size(), 3);
    Append(sent, slice.first(taken));
    return platform::SocketResult{taken, 0};
  };
  EXPECT_FALSE(SendAll(send, Pattern(8), 5));
  EXPECT_EQ(slices, (std::vector<std::size_t>{5, 5, 2}));
  EXPECT_EQ(sent, Pattern(8));
}

TEST(SendAll, FailsWhenASendFailsOrMovesNothing) {
  const platform::SocketResult failures[] = {{0, 10054}, {0, 0}};
  for (const platform::SocketResult& failure : failures) {
    for (const int failing : {1, 2, 3}) {
      int calls = 0;
      const auto send = [&](std::span<const std::byte>) {
        return ++calls == failing ? failure : platform::SocketResult{1, 0};
      };
      EXPECT_EQ(SendAll(send, Pattern(3), 65536), failure.error) << failing;
      EXPECT_EQ(calls, failing);
    }
  }
}

class WebSocketRelayTest : public testing::Test {
 protected:
  std::string FailureOf(const std::wstring& url) {
    try {
      relay_.Connect(url);
    } catch (const std::runtime_error& error) {
      EXPECT_FALSE(relay_.IsConnected());
      return error.what();
    }
    return {};
  }
  // Connects to a relay that sends `response` and then waits or closes; returns the error.
  std::string FailureAfter(const std::string& response, bool ends) {
    TestRelay server([&](TestPeer& peer) {
      peer.ReadRequest();
      peer.Send(response);
      if (!ends) peer.WaitForEnd();
    });
    return FailureOf(server.RelayUrl());
  }
  // The messages read from a relay that upgrades, sends `stream` and closes.
  std::vector<Bytes> MessagesOf(const Bytes& stream, const char* upgrade = kUpgrade) {
    TestRelay server([&](TestPeer& peer) {
      peer.ReadRequest();
      Bytes all = BytesOf(upgrade);
      Append(all, stream);
      peer.Send(all);
    });
    relay_.Connect(server.RelayUrl());
    std::vector<Bytes> messages;
    std::span<std::byte> message;
    while (relay_.ReadMessage(message)) messages.emplace_back(message.begin(), message.end());
    relay_.Close();
    return messages;
  }

  WebSocketRelay relay_{[]() { return 0x11223344U; }};
};

TEST_F(WebSocketRelayTest, RefusesASecureRelay) {
  EXPECT_EQ(FailureOf(L"wss://127.0.0.1/api"),
            "wss relay is not supported by the native Winsock transport.");
}

TEST_F(WebSocketRelayTest, RefusesInvalidAddresses) {
  EXPECT_EQ(FailureOf(L"http://127.0.0.1/"), "WinHttpCrackUrl failed for URL: http://127.0.0.1/");
}

TEST_F(WebSocketRelayTest, ReportsAnUnknownHost) {
  // Resolvers reject a label of more than 63 letters without a query.
  EXPECT_EQ(FailureOf(L"ws://" + std::wstring(70, L'a') + L"/"),
            "getaddrinfo failed for relay host.");
}

TEST_F(WebSocketRelayTest, ReportsWhereTheConnectFailed) {
  platform::SocketLibrary library;
  int error = library.Start();
  const auto taken = platform::Socket::Create(platform::SocketKind::Tcp, 2, error);
  ASSERT_EQ(taken->Bind(platform::SocketAddress::Loopback(0)), 0);  // bound, but does not listen
  const std::string port = std::to_string(taken->LocalAddress().Port());
  const std::string failure =
      FailureOf(L"ws://127.0.0.1:" + std::wstring(port.begin(), port.end()));
  EXPECT_TRUE(failure == "Relay TCP connect failed to 127.0.0.1:" + port + ", error 10061" ||
              failure == "Relay TCP connect failed to 127.0.0.1:" + port + ", error 111")
      << failure;
}

TEST_F(WebSocketRelayTest, ReportsAnUnsentRequest) {
  // Far more than socket buffers hold.
  TestRelay server(TestRelay::Refuse());
  const std::string failure = FailureOf(server.RelayUrl() + std::wstring(16 << 20, L'x'));
  constexpr std::string_view kStart = "WebSocket handshake send failed, error ";
  ASSERT_TRUE(failure.starts_with(kStart)) << failure;
  EXPECT_GT(std::stoi(failure.substr(kStart.size())), 0) << failure;
}

TEST_F(WebSocketRelayTest, TriesEachAddressOfTheHost) {
  // If the name also resolves to ::1, that is tried first, and nothing listens there.
  TestRelay server;
  const std::wstring url = server.RelayUrl();
  relay_.Connect(L"ws://localhost" + url.substr(url.find(L':', 5)));
  EXPECT_TRUE(server.WaitForConnections(1));
}

TEST_F(WebSocketRelayTest, SendsTheRequestAndSetsTheSocketUp) {
  TestRelay server;
  relay_.Connect(server.RelayUrl());
  EXPECT_TRUE(relay_.IsConnected());
  ASSERT_TRUE(server.WaitForRequests(1));
  EXPECT_EQ(server.Requests()[0],
            "GET /api/relay/client/c1?engineerId=ENG-1 HTTP/1.1\r\nHost: 127.0.0.1\r\n"
            "Upgrade: websocket\r\nConnection: Upgrade\r\n"
            "Sec-WebSocket-Key: dGhlIHNhbXBsZSBub25jZQ==\r\nSec-WebSocket-Version: 13\r\n\r\n");
  const platform::Socket::Options options = relay_.SocketOptions();
  EXPECT_EQ(options.receiveTimeout, std::chrono::milliseconds(8000));
  EXPECT_EQ(options.sendTimeout, std::chrono::milliseconds(8000));
  EXPECT_TRUE(options.noDelay);
  EXPECT_TRUE(options.keepAlive);
  // The program requests 4 MiB; systems may grant less, but more than their default.
  EXPECT_GT(options.receiveBufferBytes, 200000);
  EXPECT_GT(options.sendBufferBytes, 200000);
}

TEST_F(WebSocketRelayTest, FailsOnEveryStatusBut101) {
  EXPECT_EQ(FailureAfter("HTTP/1.1 200 OK\r\n\r\n", false),
            "WebSocket HTTP upgrade failed, status 200");
  EXPECT_EQ(FailureAfter("HTTP/1.1 404 Not Found\r\nA: b\r\n\r\n", false),
            "WebSocket HTTP upgrade failed, status 404");
  EXPECT_EQ(FailureAfter("nonsense\r\n\r\n", false), "WebSocket HTTP upgrade failed, status 0");
}

TEST_F(WebSocketRelayTest, FailsOnAnEndlessHeader) {
  EXPECT_EQ(FailureAfter("HTTP/1.1 101 OK\r\nX: " + std::string(16384, 'x'), false),
            "WebSocket handshake response was too large.");
  EXPECT_EQ(FailureAfter("HTTP/1.1 101 OK\r\nX: " + std::string(16384, 'x') + "\r\n\r\n", false),
            "WebSocket handshake response was too large.");
}

TEST_F(WebSocketRelayTest, FailsWhenTheRelayEndsDuringTheHandshake) {
  EXPECT_EQ(FailureAfter("", true), "WebSocket handshake receive failed, error 0");
  EXPECT_EQ(FailureAfter("HTTP/1.1 101 OK\r\n", true),
            "WebSocket handshake receive failed, error 0");
}

TEST_F(WebSocketRelayTest, KeepsTheBytesAfterTheHandshake) {
  Bytes stream = ServerFrame(0x82, BytesOf("first"));
  Append(stream, ServerFrame(0x82, Pattern(70000)));
  EXPECT_EQ(MessagesOf(stream), (std::vector<Bytes>{BytesOf("first"), Pattern(70000)}));
}

// AddressSanitizer aborts if they are not readable.
TEST_F(WebSocketRelayTest, HasReadableBytesAfterAMessage) {
  TestRelay server;
  relay_.Connect(server.RelayUrl());
  for (const std::size_t size : {20U, 65536U, 131072U - 10, 262144U - 10, 4194304U}) {
    ASSERT_TRUE(server.Push(ServerFrame(0x82, Pattern(size))));
    std::span<std::byte> message;
    ASSERT_TRUE(relay_.ReadMessage(message));
    ASSERT_EQ(message.size(), size);
    TouchEach({message.data() + size, kReadableBehindPacket});
  }
  // A fragmented message is assembled in the reader's memory.
  Bytes fragments = ServerFrame(0x02, Pattern(1000));
  Append(fragments, ServerFrame(0x80, Pattern(24)));
  ASSERT_TRUE(server.Push(fragments));
  std::span<std::byte> message;
  ASSERT_TRUE(relay_.ReadMessage(message));
  ASSERT_EQ(message.size(), 1024U);
  TouchEach({message.data() + message.size(), kReadableBehindPacket});
}

TEST_F(WebSocketRelayTest, MessageCutMidFrameEndsTheConnection) {
  Bytes stream = ServerFrame(0x82, BytesOf("whole"));
  const Bytes cut = ServerFrame(0x82, Pattern(1000));
  Append(stream, std::span(cut).first(500));
  EXPECT_EQ(MessagesOf(stream), std::vector<Bytes>{BytesOf("whole")});
}

TEST_F(WebSocketRelayTest, CloseFrameAndOversizeEndTheConnection) {
  Bytes stream = ServerFrame(0x82, BytesOf("a"));
  Append(stream, ServerFrame(0x88, {}));
  Append(stream, ServerFrame(0x82, BytesOf("b")));
  EXPECT_EQ(MessagesOf(stream), std::vector<Bytes>{BytesOf("a")});
  EXPECT_TRUE(MessagesOf(BytesOf({0x82, 127, 0, 0, 0, 0, 0, 0x40, 0, 1})).empty());
}

TEST_F(WebSocketRelayTest, AnswersPingInsideFragmentedMessage) {
  TestRelay server;
  relay_.Connect(server.RelayUrl());
  Bytes stream = ServerFrame(0x02, BytesOf("frag"));
  Append(stream, ServerFrame(0x89, BytesOf("are you there")));
  Append(stream, ServerFrame(0x80, BytesOf("ment")));
  ASSERT_TRUE(server.Push(stream));
  std::span<std::byte> message;
  ASSERT_TRUE(relay_.ReadMessage(message));
  EXPECT_TRUE(std::ranges::equal(message, BytesOf("fragment")));
  ASSERT_TRUE(server.WaitForFrames(1));
  EXPECT_EQ(server.Frames()[0].firstByte, 0x8A);
  EXPECT_TRUE(server.Frames()[0].isMasked);
  EXPECT_EQ(server.Frames()[0].payload, BytesOf("are you there"));
}

TEST_F(WebSocketRelayTest, APongThatCannotBeSentEndsTheConnection) {
  // Ping and message arrive with the upgrade, before the connection ends.
  TestRelay server([](TestPeer& peer) {
    peer.ReadRequest();
    Bytes all = BytesOf(kUpgrade);
    Append(all, ServerFrame(0x89, BytesOf("are you there")));
    Append(all, ServerFrame(0x82, BytesOf("message")));
    peer.Send(all);
  });
  relay_.Connect(server.RelayUrl());
  while (relay_.SendFrame(kOpcodeBinary, BytesOf("x"))) std::this_thread::yield();
  std::span<std::byte> message;
  EXPECT_FALSE(relay_.ReadMessage(message));
  EXPECT_TRUE(message.empty());
}

TEST_F(WebSocketRelayTest, SendsEachPacketAsOneMaskedFrame) {
  TestRelay server;
  relay_.Connect(server.RelayUrl());
  const std::size_t sizes[] = {0, 1, 125, 126, 65535, 65536, 200000};
  for (const std::size_t size : sizes) EXPECT_TRUE(relay_.SendFrame(kOpcodeBinary, Pattern(size)));
  ASSERT_TRUE(server.WaitForFrames(std::size(sizes)));
  const std::vector<TestPeer::Frame> frames = server.Frames();
  for (std::size_t i = 0; i < std::size(sizes); ++i) {
    EXPECT_EQ(frames[i].firstByte, 0x82);
    EXPECT_TRUE(frames[i].isMasked);
    EXPECT_EQ(frames[i].payload, Pattern(sizes[i]));
  }
  // 1 and 2 times 0x9E3779B9, each with the fixed tick of 0x11223344.
  EXPECT_EQ(frames[0].key, BytesOf({0x8F, 0x15, 0x4A, 0xFD}));
  EXPECT_EQ(frames[1].key, BytesOf({0x2D, 0x4C, 0xC0, 0x36}));
}

TEST_F(WebSocketRelayTest, SendsManyPacketsTogetherEachAsItsOwnFrame) {
  TestRelay server;
  relay_.Connect(server.RelayUrl());
  // First more than one send accepts, then more memory than is kept, then one byte.
  for (const std::size_t longest : {70000U, 2000000U, 1U}) {
    std::vector<Bytes> packets;
    for (std::size_t size = 1; size <= longest; size = size * 3 + 1) {
      packets.push_back(Pattern(size));
    }
    packets.push_back(Pattern(longest));
    const std::vector<std::span<const std::byte>> payloads(packets.begin(), packets.end());
    const std::size_t before = server.Frames().size();
    ASSERT_TRUE(relay_.SendFrames(kOpcodeBinary, payloads));
    ASSERT_TRUE(server.WaitForFrames(before + packets.size()));
    const std::vector<TestPeer::Frame> frames = server.Frames();
    for (std::size_t i = 0; i < packets.size(); ++i) {
      EXPECT_EQ(frames[before + i].firstByte, 0x82);
      EXPECT_EQ(frames[before + i].payload, packets[i]);
    }
  }
  const std::vector<TestPeer::Frame> frames = server.Frames();
  EXPECT_EQ(frames[1].key, BytesOf({0x2D, 0x4C, 0xC0, 0x36}));  // each has its own key
}

TEST_F(WebSocketRelayTest, FramesOfTwoThreadsDoNotMix) {
  TestRelay server;
  relay_.Connect(server.RelayUrl());
  const auto sendMany = [this](std::size_t size) {
    for (int i = 0; i < 50; ++i) EXPECT_TRUE(relay_.SendFrame(kOpcodeBinary, Pattern(size)));
  };
  std::thread other(sendMany, 70000);
  sendMany(3);
  other.join();
  ASSERT_TRUE(server.WaitForFrames(100));
  for (const TestPeer::Frame& frame : server.Frames()) {
    EXPECT_TRUE(frame.payload == Pattern(3) || frame.payload == Pattern(70000));
  }
}

TEST_F(WebSocketRelayTest, DoesNothingWhenNotConnected) {
  std::span<std::byte> message;
  EXPECT_FALSE(relay_.SendFrame(kOpcodeBinary, BytesOf("x")));
  EXPECT_FALSE(relay_.ReadMessage(message));
  relay_.Close();
  relay_.Close();
  EXPECT_FALSE(relay_.IsConnected());
}

TEST_F(WebSocketRelayTest, CloseEndsAWaitingRead) {
  TestRelay server;
  relay_.Connect(server.RelayUrl());
  std::thread reader([this]() {
    std::span<std::byte> message;
    EXPECT_FALSE(relay_.ReadMessage(message));
  });
  relay_.Close();
  reader.join();
}

TEST_F(WebSocketRelayTest, CloseEndsAWaitingHandshake) {
  TestRelay server([&](TestPeer& peer) {
    server.TakeRequest(peer);
    peer.WaitForEnd();
  });
  std::string failure;
  std::thread connecter([&]() { failure = FailureOf(server.RelayUrl()); });
  EXPECT_TRUE(server.WaitForRequests(1));
  relay_.Close();
  connecter.join();
  // The request may arrive before the call that sends it returns.
  const std::string error = " failed, error " + std::to_string(platform::SocketClosedError());
  EXPECT_THAT(failure, testing::AnyOf("WebSocket handshake receive" + error,
                                      "WebSocket handshake send" + error));
}

TEST_F(WebSocketRelayTest, CloseAtTheEndOfAHandshakeLeavesNoConnectionBehind) {
  TestRelay server;
  std::mt19937 random(20240501);
  for (std::size_t round = 1; round <= kCloseRounds; ++round) {
    std::thread connecter([&]() { FailureOf(server.RelayUrl()); });
    // Now there is a socket to close, and the handshake is almost complete.
    EXPECT_TRUE(server.WaitForRequests(round));
    const auto moment =
        std::chrono::steady_clock::now() + std::chrono::nanoseconds(random() % 200000);
    while (std::chrono::steady_clock::now() < moment) {
    }
    relay_.Close();
    connecter.join();
    ASSERT_FALSE(relay_.IsConnected()) << "round " << round;
  }
}

TEST_F(WebSocketRelayTest, CancelledConnectOpensNothing) {
  TestRelay server;
  WebSocketRelay cancelled;
  const auto isCancelled = []() { return true; };
  EXPECT_THROW(cancelled.Connect(server.RelayUrl(), isCancelled), std::runtime_error);
  EXPECT_FALSE(cancelled.IsConnected());
  EXPECT_TRUE(server.Requests().empty());
}

TEST_F(WebSocketRelayTest, CountsReceivedBytes) {
  TestRelay server;
  relay_.Connect(server.RelayUrl());
  const std::uint64_t before = relay_.ReceivedBytes();
  EXPECT_GT(before, 0U);  // the handshake
  const Bytes frame = ServerFrame(0x82, BytesOf("12345"));
  ASSERT_TRUE(server.Push(frame));
  std::span<std::byte> message;
  ASSERT_TRUE(relay_.ReadMessage(message));
  EXPECT_EQ(relay_.ReceivedBytes(), before + frame.size());
}

TEST_F(WebSocketRelayTest, ConnectsAgainAfterClose) {
  TestRelay server;
  for (std::size_t round = 1; round <= 3; ++round) {
    relay_.Connect(server.RelayUrl());  // from the second on, replaces an open connection
    EXPECT_TRUE(server.WaitForConnections(round));
    ASSERT_TRUE(relay_.SendFrame(kOpcodeBinary, BytesOf("x")));
    EXPECT_TRUE(server.WaitForFrames(round));
  }
}

}  // namespace
}  // namespace tunnel
