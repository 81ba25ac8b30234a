#include <gtest/gtest.h>

#include <algorithm>
#include <thread>

#include "tunnel/relay/test_socket_udp_relay.h"
#include "tunnel/relay/udp_datagram.h"

// A running path: its threads, token, losses and end.
namespace tunnel {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

class SocketUdpRelayRunning : public SocketUdpRelayFixture {
 protected:
  // Closes the path a hundred times around the moment of a hello.
  void CloseAroundHellos() {
    for (int i = 0; i < 100; ++i) {
      Restart();
      EXPECT_TRUE(world_.WaitForSleeper());
      world_.Advance(seconds(15));
      const auto moment = std::chrono::steady_clock::now() + std::chrono::microseconds(20 * i);
      while (std::chrono::steady_clock::now() < moment) std::this_thread::yield();
      relay_.Close();
      EXPECT_EQ(world_.OpenSockets(), 0);
    }
  }
};

TEST_F(SocketUdpRelayRunning, ALaterAcknowledgementMakesThePathReady) {
  AcknowledgeNothing();
  Start();
  Receive(AcknowledgementOf(kLaterToken));
  EXPECT_TRUE(relay_.IsReady());
  EXPECT_TRUE(relay_.SendUdpPacket(Pattern(20)));
  EXPECT_EQ(world_.Sent().back(), PacketDatagram(kLaterToken, Pattern(20)));
}

TEST_F(SocketUdpRelayRunning, AFalseAcknowledgementMakesNothingReady) {
  AcknowledgeNothing();
  Start();
  const Bytes good = AcknowledgementOf(kLaterToken);
  Bytes longer = good;
  longer.push_back(std::byte{0});
  for (const Bytes& datagram : {Bytes(good.begin(), good.end() - 1), longer, AcknowledgementOf(0),
                                AcknowledgementOf(kLaterToken, 1)}) {
    Receive(datagram);
    EXPECT_FALSE(relay_.IsReady());
  }
}

TEST_F(SocketUdpRelayRunning, SaysHelloEveryFifteenSeconds) {
  Start();
  for (std::size_t hellos = 2; hellos <= 4; ++hellos) {
    ASSERT_TRUE(world_.WaitForSleeper());
    world_.Advance(milliseconds(14999));
    ASSERT_TRUE(world_.WaitForSleeper());
    EXPECT_EQ(world_.Sent().size(), hellos - 1);
    world_.Advance(milliseconds(1));
    ASSERT_TRUE(world_.WaitForSent(hellos));
    EXPECT_EQ(world_.Sent().back(), BuildHello(L"C1", L"ENG-1"));
    ASSERT_TRUE(world_.WaitForQuiet());
  }
  EXPECT_TRUE(relay_.IsReady());
}

TEST_F(SocketUdpRelayRunning, AWakeUpBeforeTheTimeDoesNotBringTheNextHello) {
  Start();
  ASSERT_TRUE(world_.WaitForWaits(4));
  EXPECT_EQ(world_.Sent().size(), 1U);
}

TEST_F(SocketUdpRelayRunning, FortyFiveSecondsWithoutAcknowledgementAreALoss) {
  Start();
  AcknowledgeNothing();
  for (int i = 0; i < 3; ++i) PassKeepAlive();
  EXPECT_TRUE(relay_.IsReady());  // exactly 45 s
  world_.Advance(milliseconds(1));
  EXPECT_FALSE(relay_.IsReady());
  PassKeepAlive();
  EXPECT_FALSE(relay_.IsReady());
}

TEST_F(SocketUdpRelayRunning, AnAcknowledgementAfterALossMakesThePathReadyAgain) {
  Start();
  // Repeated, because the acknowledgement and the check for it may come in either order.
  for (int loss = 0; loss < 50; ++loss) {
    AcknowledgeNothing();
    for (int i = 0; i < 5; ++i) PassKeepAlive();
    ASSERT_FALSE(relay_.IsReady());
    Acknowledge(kToken);
    PassKeepAlive();
    ASSERT_TRUE(relay_.IsReady()) << "after loss " << loss;
  }
}

TEST_F(SocketUdpRelayRunning, ReportsTheFirstStateAndThenEachChangeOnce) {
  AcknowledgeNothing();
  Start();
  EXPECT_EQ(Reports(), std::vector<bool>{false});
  Acknowledge(kToken);
  for (int i = 0; i < 3; ++i) PassKeepAlive();
  EXPECT_EQ(Reports(), (std::vector<bool>{false, true}));
  AcknowledgeNothing();
  for (int i = 0; i < 6; ++i) PassKeepAlive();
  EXPECT_EQ(Reports(), (std::vector<bool>{false, true, false}));
  Acknowledge(kToken);
  Restart();
  Restart();
  EXPECT_EQ(Reports(), (std::vector<bool>{false, true, false, true}));
}

TEST_F(SocketUdpRelayRunning, TwoThreadsReportInTurn) {
  Start();
  world_.FailSends(true);
  for (int i = 0; i < 200; ++i) {
    ASSERT_TRUE(world_.WaitForSleeper());
    world_.Deliver(AcknowledgementOf(kToken));  // the receiver's report: ready
    world_.Advance(seconds(15));                // the keep-alive's: not ready
  }
  const std::vector<bool> reports = Reports();
  EXPECT_EQ(std::ranges::adjacent_find(reports), reports.end());
}

TEST_F(SocketUdpRelayRunning, AHelloMayCoincideWithTheClose) {
  CloseAroundHellos();
}

TEST_F(SocketUdpRelayRunning, PacketsMayCoincideWithTheClose) {
  std::atomic<bool> isDone{false};
  std::thread sender([&]() {
    while (!isDone) {
      if (relay_.IsReady()) relay_.SendUdpPacket(Pattern(20));
      std::this_thread::yield();
    }
  });
  CloseAroundHellos();
  isDone = true;
  sender.join();
}

TEST_F(SocketUdpRelayRunning, EachAcknowledgementPostponesTheLoss) {
  Start();
  for (int i = 0; i < 10; ++i) {
    PassKeepAlive();
    EXPECT_TRUE(relay_.IsReady());
  }
}

TEST_F(SocketUdpRelayRunning, AHelloThatCannotBeSentIsALossUntilTheNextAcknowledgement) {
  Start();
  world_.FailSends(true);
  ASSERT_TRUE(world_.WaitForSleeper());
  world_.Advance(seconds(15));
  while (relay_.IsReady()) std::this_thread::yield();
  world_.FailSends(false);
  PassKeepAlive();
  EXPECT_TRUE(relay_.IsReady());
}

TEST_F(SocketUdpRelayRunning, KeepsSayingHelloWithoutAcknowledgement) {
  AcknowledgeNothing();
  Start();
  for (int i = 0; i < 4; ++i) PassKeepAlive();
  EXPECT_EQ(world_.Sent().size(), 8U);
  EXPECT_FALSE(relay_.IsReady());
}

TEST_F(SocketUdpRelayRunning, SendsPacketsOfUpTo1330Bytes) {
  Start();
  for (const std::size_t size : {20U, 1330U}) {
    EXPECT_TRUE(relay_.SendUdpPacket(Pattern(size)));
    EXPECT_EQ(world_.Sent().back(), PacketDatagram(kToken, Pattern(size)));
  }
  EXPECT_EQ(world_.Sent().back().size(), 1343U);
  EXPECT_FALSE(relay_.SendUdpPacket(Pattern(1331)));
  EXPECT_EQ(world_.Sent().size(), 3U);
}

TEST_F(SocketUdpRelayRunning, APacketThatTheNetworkRefusesIsReported) {
  Start();
  world_.FailSends(true);
  EXPECT_FALSE(relay_.SendUdpPacket(Pattern(20)));
}

TEST_F(SocketUdpRelayRunning, PassesOnlyPacketsWithTheRightToken) {
  Start();
  Receive(PacketDatagram(kToken, Pattern(20)));
  Receive(PacketDatagram(0, Pattern(21)));
  Receive(PacketDatagram(kToken + 1, Pattern(22)));
  Receive(PacketDatagram(kToken, {}));
  Receive(PacketDatagram(kToken, Pattern(1388)));
  Receive(PacketDatagram(kToken, Pattern(1387)));
  EXPECT_EQ(Inbound(), (std::vector<Bytes>{Pattern(20), Pattern(1387)}));
}

TEST_F(SocketUdpRelayRunning, BeforeAnyAcknowledgementNoPacketIsTaken) {
  AcknowledgeNothing();
  Start();
  Receive(PacketDatagram(0, Pattern(20)));
  Receive(PacketDatagram(kToken, Pattern(20)));
  EXPECT_TRUE(Inbound().empty());
}

TEST_F(SocketUdpRelayRunning, ANewTokenTakesTheOldOnesPlaceBothWays) {
  Start();
  Receive(AcknowledgementOf(kLaterToken));
  EXPECT_TRUE(relay_.SendUdpPacket(Pattern(20)));
  EXPECT_EQ(world_.Sent().back(), PacketDatagram(kLaterToken, Pattern(20)));
  Receive(PacketDatagram(kToken, Pattern(20)));
  EXPECT_TRUE(Inbound().empty());
  Receive(PacketDatagram(kLaterToken, Pattern(20)));
  EXPECT_EQ(Inbound().size(), 1U);
}

TEST_F(SocketUdpRelayRunning, ContinuesAfterErrorsAndTimeouts) {
  Start();
  for (int i = 0; i < 3; ++i) {
    world_.FailReceive(kConnectionReset);
    ASSERT_TRUE(world_.WaitForQuiet());
    world_.Advance(seconds(3));  // past a receive's time-out
    Receive(PacketDatagram(kToken, Pattern(20)));
  }
  EXPECT_EQ(Inbound().size(), 3U);
  EXPECT_EQ(world_.Pauses(), std::vector<milliseconds>(3, milliseconds(20)));
}

TEST_F(SocketUdpRelayRunning, AClosedPathIsNotReadyAndMayStartAgain) {
  Start();
  relay_.Close();
  EXPECT_FALSE(relay_.IsReady());
  EXPECT_FALSE(relay_.SendUdpPacket(Pattern(20)));
  relay_.Join();
  EXPECT_EQ(world_.OpenSockets(), 0);
  Acknowledge(kLaterToken);
  Start();
  EXPECT_TRUE(relay_.IsReady());
  Receive(PacketDatagram(kToken, Pattern(20)));
  EXPECT_TRUE(Inbound().empty());
}

TEST_F(SocketUdpRelayRunning, ATokenOfAnEarlierPathDoesNotSurviveAnUnansweredStart) {
  Start();
  AcknowledgeNothing();
  Restart();
  EXPECT_FALSE(relay_.IsReady());
  EXPECT_FALSE(relay_.SendUdpPacket(Pattern(20)));
  Receive(PacketDatagram(kToken, Pattern(20)));
  EXPECT_TRUE(Inbound().empty());
}

}  // namespace
}  // namespace tunnel
