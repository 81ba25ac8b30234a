#include "tunnel/socket_udp_relay.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <thread>

#include "tunnel/fake_datagrams.h"
#include "tunnel/udp_datagram.h"

namespace tunnel {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

constexpr std::uint64_t kToken = 0xA1B2C3D4E5F60718;
constexpr std::uint64_t kLaterToken = 77;
constexpr int kConnectionReset = 10054;

class SocketUdpRelayTest : public testing::Test {
 protected:
  void SetUp() override { Acknowledge(kToken); }
  void TearDown() override {
    relay_.Close();
    relay_.Join();
    EXPECT_EQ(world_.OpenSockets(), 0);
  }

  void Acknowledge(std::uint64_t token) {
    world_.AnswerHellosWith([token]() { return std::vector<Bytes>{AcknowledgementOf(token)}; });
  }
  void AcknowledgeNothing() { world_.AnswerHellosWith(nullptr); }
  void Start() { relay_.StartUdpRelay({L"http://relay.example:31080", L" C1 ", L"ENG-1"}); }
  void Restart() {
    relay_.Close();
    relay_.Join();
    Start();
  }
  // Lets the time of one keep-alive pass, with all that it does.
  void PassKeepAlive() {
    const std::size_t before = world_.Sent().size();
    ASSERT_TRUE(world_.WaitForSleeper());
    world_.Advance(seconds(15));
    ASSERT_TRUE(world_.WaitForSent(before + 1));
    ASSERT_TRUE(world_.WaitForSleeper());
    ASSERT_TRUE(world_.WaitForQuiet());
  }
  void Receive(Bytes datagram) {
    world_.Deliver(std::move(datagram));
    ASSERT_TRUE(world_.WaitForQuiet());
  }
  std::vector<Bytes> Inbound() {
    const platform::MutexLock held(lock_);
    return inbound_;
  }

  std::vector<bool> Reports() {
    const platform::MutexLock held(lock_);
    return reports_;
  }

  platform::Mutex lock_;
  std::vector<bool> reports_ GUARDED_BY(lock_);
  std::vector<Bytes> inbound_ GUARDED_BY(lock_);
  std::atomic<bool> keepGoing_{true};
  FakeDatagrams world_;
  SocketUdpRelay relay_{{[this](std::span<std::byte> packet) {
                           const platform::MutexLock held(lock_);
                           inbound_.emplace_back(packet.begin(), packet.end());
                         },
                         [this]() { return keepGoing_.load(); },
                         [this](bool ready) {
                           const platform::MutexLock held(lock_);
                           reports_.push_back(ready);
                         }},
                        world_.Deps()};
};

TEST_F(SocketUdpRelayTest, AnAcknowledgedStartIsReadyAtOnce) {
  Start();
  EXPECT_TRUE(relay_.IsReady());
  EXPECT_EQ(
      world_.Openings(),
      (std::vector<FakeDatagrams::Opening>{{L"http://relay.example:31080", milliseconds(900)}}));
  EXPECT_EQ(world_.Sent(), std::vector<Bytes>{BuildHello(L"C1", L"ENG-1")});
  EXPECT_EQ(world_.Timeouts(), (std::vector<milliseconds>{milliseconds(900), milliseconds(2000)}));
}

TEST_F(SocketUdpRelayTest, AStartAsksFourTimesForNineHundredMilliseconds) {
  AcknowledgeNothing();
  const milliseconds before = world_.Now();
  Start();
  EXPECT_EQ(world_.Now() - before, milliseconds(3600));
  EXPECT_EQ(world_.Sent(), std::vector<Bytes>(4, BuildHello(L"C1", L"ENG-1")));
  EXPECT_FALSE(relay_.IsReady());
  EXPECT_FALSE(relay_.SendUdpPacket(Pattern(20)));
  EXPECT_EQ(world_.Sent().size(), 4U);
}

TEST_F(SocketUdpRelayTest, ALaterAttemptMayBeTheAcknowledgedOne) {
  for (const int wanted : {2, 3, 4}) {
    std::atomic<int> hellos{0};
    world_.AnswerHellosWith([&]() {
      return ++hellos == wanted ? std::vector<Bytes>{AcknowledgementOf(kToken)}
                                : std::vector<Bytes>{};
    });
    Restart();
    EXPECT_TRUE(relay_.IsReady());
    EXPECT_EQ(hellos, wanted);
  }
}

TEST_F(SocketUdpRelayTest, RubbishBeforeTheAcknowledgementCostsNoAttempt) {
  const Bytes good = AcknowledgementOf(kToken);
  Bytes longer = good;
  longer.push_back(std::byte{0});
  world_.AnswerHellosWith([&]() {
    return std::vector<Bytes>{{},
                              Bytes(good.begin(), good.end() - 1),
                              longer,
                              AcknowledgementOf(kToken, 1),
                              AcknowledgementOf(0),
                              PacketDatagram(kToken, Pattern(20)),
                              good};
  });
  Start();
  EXPECT_TRUE(relay_.IsReady());
  EXPECT_EQ(world_.Sent().size(), 1U);
  EXPECT_TRUE(Inbound().empty());
}

TEST_F(SocketUdpRelayTest, RubbishAloneDoesNotLengthenTheAttempts) {
  world_.AnswerHellosWith([]() { return std::vector<Bytes>{AcknowledgementOf(0), Pattern(14)}; });
  const milliseconds before = world_.Now();
  Start();
  EXPECT_EQ(world_.Now() - before, milliseconds(3600));
  EXPECT_EQ(world_.Sent().size(), 4U);
  EXPECT_FALSE(relay_.IsReady());
}

TEST_F(SocketUdpRelayTest, AnErrorDuringAnAttemptDoesNotEndIt) {
  std::atomic<int> hellos{0};
  world_.AnswerHellosWith([&]() {
    // As after the relay's computer has said that nobody listens there.
    if (++hellos == 1) world_.FailReceive(kConnectionReset);
    return std::vector<Bytes>{AcknowledgementOf(kToken)};
  });
  Start();
  EXPECT_TRUE(relay_.IsReady());
  EXPECT_EQ(hellos, 1);
  EXPECT_EQ(world_.Pauses(), std::vector<milliseconds>{milliseconds(20)});
}

TEST_F(SocketUdpRelayTest, AnErrorDuringAnAttemptDoesNotLengthenIt) {
  AcknowledgeNothing();
  world_.FailReceive(kConnectionReset);
  const milliseconds before = world_.Now();
  Start();
  EXPECT_EQ(world_.Now() - before, milliseconds(3600));
  std::vector<milliseconds> expected;
  for (const int time : {900, 880, 900, 900, 900, 2000}) expected.emplace_back(time);
  EXPECT_EQ(world_.Timeouts(), expected);
}

TEST_F(SocketUdpRelayTest, AComputerThatRefusesEveryHelloIsAskedFourTimesAllTheSame) {
  AcknowledgeNothing();
  world_.FailAttempts(kConnectionReset);
  const milliseconds before = world_.Now();
  Start();
  EXPECT_EQ(world_.Now() - before, milliseconds(3600));
  EXPECT_EQ(world_.Sent().size(), 4U);
  EXPECT_EQ(world_.Pauses(), std::vector<milliseconds>(180, milliseconds(20)));
  EXPECT_FALSE(relay_.IsReady());
}

TEST_F(SocketUdpRelayTest, HellosThatCannotBeSentStillTakeTheirTime) {
  world_.FailSends(true);
  const milliseconds before = world_.Now();
  Start();
  EXPECT_EQ(world_.Now() - before, milliseconds(3600));
  EXPECT_FALSE(relay_.IsReady());
}

TEST_F(SocketUdpRelayTest, AStopEndsTheAttempts) {
  std::atomic<int> hellos{0};
  world_.AnswerHellosWith([&]() {
    if (++hellos == 2) keepGoing_ = false;
    return std::vector<Bytes>{Pattern(14)};
  });
  const milliseconds before = world_.Now();
  Start();
  EXPECT_EQ(hellos, 2);
  EXPECT_EQ(world_.Now() - before, milliseconds(900));  // nothing of the second attempt's time
  EXPECT_FALSE(relay_.IsReady());
  EXPECT_TRUE(Reports().empty());
}

TEST_F(SocketUdpRelayTest, AnAcknowledgementThatComesAfterAStopMakesNothingReady) {
  world_.AnswerHellosWith([this]() {
    keepGoing_ = false;
    return std::vector<Bytes>{AcknowledgementOf(kToken)};
  });
  Start();
  EXPECT_FALSE(relay_.IsReady());
  EXPECT_TRUE(Reports().empty());
}

TEST_F(SocketUdpRelayTest, BothThreadsEndWithTheTunnelThoughNobodyClosesThePath) {
  Start();
  ASSERT_TRUE(world_.WaitForSleeper());
  ASSERT_TRUE(world_.WaitForQuiet());
  keepGoing_ = false;
  world_.Advance(seconds(15));
  relay_.Join();
  EXPECT_EQ(world_.Sent().size(), 1U);
}

TEST_F(SocketUdpRelayTest, AStopBeforeTheStartSendsNothing) {
  keepGoing_ = false;
  Start();
  EXPECT_TRUE(world_.Sent().empty());
  EXPECT_FALSE(relay_.IsReady());
}

TEST_F(SocketUdpRelayTest, ClosingEndsAStartThatWaits) {
  std::atomic<int> hellos{0};
  world_.AnswerHellosWith([&]() {
    if (++hellos == 1) relay_.Close();
    return std::vector<Bytes>{};
  });
  Start();
  EXPECT_EQ(hellos, 1);
  EXPECT_FALSE(relay_.IsReady());
  EXPECT_FALSE(relay_.SendUdpPacket(Pattern(20)));
}

TEST_F(SocketUdpRelayTest, APathClosedAtTheEndOfItsStartDoesNotBecomeReady) {
  std::atomic<bool> isClosed{false};
  std::atomic<int> reports{0};
  std::unique_ptr<SocketUdpRelay> relay;
  UdpRelayHooks hooks;
  hooks.keepGoing = [&]() {
    // The acknowledgement has come, its report has not.
    const bool isAsked = std::ranges::count(world_.Timeouts(), milliseconds(2000)) > 0;
    if (isAsked && !isClosed.exchange(true)) relay->Close();
    return true;
  };
  hooks.readyChanged = [&](bool) { ++reports; };
  relay = std::make_unique<SocketUdpRelay>(std::move(hooks), world_.Deps());
  relay->StartUdpRelay({L"http://relay.example", L"C1", L"ENG-1"});
  relay->Join();
  EXPECT_FALSE(relay->IsReady());
  EXPECT_EQ(reports, 0);
}

TEST_F(SocketUdpRelayTest, ATokenOfAnEarlierPathIsNotUsedWhileANewStartAsks) {
  Start();
  std::atomic<int> sent{0};
  world_.AnswerHellosWith([&]() {
    if (relay_.SendUdpPacket(Pattern(20))) ++sent;
    return std::vector<Bytes>{};
  });
  Restart();
  EXPECT_EQ(sent, 0);
}

TEST_F(SocketUdpRelayTest, ALaterAcknowledgementMakesThePathReady) {
  AcknowledgeNothing();
  Start();
  Receive(AcknowledgementOf(kLaterToken));
  EXPECT_TRUE(relay_.IsReady());
  EXPECT_TRUE(relay_.SendUdpPacket(Pattern(20)));
  EXPECT_EQ(world_.Sent().back(), PacketDatagram(kLaterToken, Pattern(20)));
}

TEST_F(SocketUdpRelayTest, AFalseAcknowledgementMakesNothingReady) {
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

TEST_F(SocketUdpRelayTest, SaysHelloEveryFifteenSeconds) {
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

TEST_F(SocketUdpRelayTest, AWakeUpBeforeTheTimeDoesNotBringTheNextHello) {
  Start();
  ASSERT_TRUE(world_.WaitForWaits(4));
  EXPECT_EQ(world_.Sent().size(), 1U);
}

TEST_F(SocketUdpRelayTest, FortyFiveSecondsWithoutAcknowledgementAreALoss) {
  Start();
  AcknowledgeNothing();
  for (int i = 0; i < 3; ++i) PassKeepAlive();
  EXPECT_TRUE(relay_.IsReady());  // exactly 45 s
  world_.Advance(milliseconds(1));
  EXPECT_FALSE(relay_.IsReady());
  PassKeepAlive();
  EXPECT_FALSE(relay_.IsReady());
}

TEST_F(SocketUdpRelayTest, AnAcknowledgementAfterALossMakesThePathReadyAgain) {
  Start();
  AcknowledgeNothing();
  for (int i = 0; i < 5; ++i) PassKeepAlive();
  ASSERT_FALSE(relay_.IsReady());
  Acknowledge(kToken);
  PassKeepAlive();
  EXPECT_TRUE(relay_.IsReady());
}

TEST_F(SocketUdpRelayTest, TellsTheFirstStateAndThenEachChangeOnce) {
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

TEST_F(SocketUdpRelayTest, TwoThreadsReportInTurn) {
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

TEST_F(SocketUdpRelayTest, AHelloMayMeetTheClosing) {
  for (int i = 0; i < 100; ++i) {
    Restart();
    ASSERT_TRUE(world_.WaitForSleeper());
    world_.Advance(seconds(15));
    relay_.Close();
    relay_.Join();
    EXPECT_EQ(world_.OpenSockets(), 0);
  }
}

TEST_F(SocketUdpRelayTest, EachAcknowledgementPutsTheLossOff) {
  Start();
  for (int i = 0; i < 10; ++i) {
    PassKeepAlive();
    EXPECT_TRUE(relay_.IsReady());
  }
}

TEST_F(SocketUdpRelayTest, AHelloThatCannotBeSentIsALossUntilTheNextAcknowledgement) {
  Start();
  world_.FailSends(true);
  ASSERT_TRUE(world_.WaitForSleeper());
  world_.Advance(seconds(15));
  while (relay_.IsReady()) std::this_thread::yield();
  world_.FailSends(false);
  PassKeepAlive();
  EXPECT_TRUE(relay_.IsReady());
}

TEST_F(SocketUdpRelayTest, SaysHelloOnThoughNeverAcknowledged) {
  AcknowledgeNothing();
  Start();
  for (int i = 0; i < 4; ++i) PassKeepAlive();
  EXPECT_EQ(world_.Sent().size(), 8U);
  EXPECT_FALSE(relay_.IsReady());
}

TEST_F(SocketUdpRelayTest, SendsPacketsOfUpTo1330Bytes) {
  Start();
  for (const std::size_t size : {20U, 1330U}) {
    EXPECT_TRUE(relay_.SendUdpPacket(Pattern(size)));
    EXPECT_EQ(world_.Sent().back(), PacketDatagram(kToken, Pattern(size)));
  }
  EXPECT_EQ(world_.Sent().back().size(), 1343U);
  EXPECT_FALSE(relay_.SendUdpPacket(Pattern(1331)));
  EXPECT_EQ(world_.Sent().size(), 3U);
}

TEST_F(SocketUdpRelayTest, APacketThatTheNetworkRefusesIsReported) {
  Start();
  world_.FailSends(true);
  EXPECT_FALSE(relay_.SendUdpPacket(Pattern(20)));
}

TEST_F(SocketUdpRelayTest, HandsOverPacketsWithTheRightTokenOnly) {
  Start();
  Receive(PacketDatagram(kToken, Pattern(20)));
  Receive(PacketDatagram(0, Pattern(21)));
  Receive(PacketDatagram(kToken + 1, Pattern(22)));
  Receive(PacketDatagram(kToken, {}));
  Receive(PacketDatagram(kToken, Pattern(1388)));
  Receive(PacketDatagram(kToken, Pattern(1387)));
  EXPECT_EQ(Inbound(), (std::vector<Bytes>{Pattern(20), Pattern(1387)}));
}

TEST_F(SocketUdpRelayTest, BeforeAnyAcknowledgementNoPacketIsTaken) {
  AcknowledgeNothing();
  Start();
  Receive(PacketDatagram(0, Pattern(20)));
  Receive(PacketDatagram(kToken, Pattern(20)));
  EXPECT_TRUE(Inbound().empty());
}

TEST_F(SocketUdpRelayTest, ANewTokenTakesTheOldOnesPlaceBothWays) {
  Start();
  Receive(AcknowledgementOf(kLaterToken));
  EXPECT_TRUE(relay_.SendUdpPacket(Pattern(20)));
  EXPECT_EQ(world_.Sent().back(), PacketDatagram(kLaterToken, Pattern(20)));
  Receive(PacketDatagram(kToken, Pattern(20)));
  EXPECT_TRUE(Inbound().empty());
  Receive(PacketDatagram(kLaterToken, Pattern(20)));
  EXPECT_EQ(Inbound().size(), 1U);
}

TEST_F(SocketUdpRelayTest, ReceivesOnAfterErrorsAndTimeouts) {
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

TEST_F(SocketUdpRelayTest, AClosedPathIsNotReadyAndMayStartAgain) {
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

TEST_F(SocketUdpRelayTest, ATokenOfAnEarlierPathDoesNotSurviveAnUnansweredStart) {
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
