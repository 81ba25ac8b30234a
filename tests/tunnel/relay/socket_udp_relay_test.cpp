#include "tunnel/relay/udp_relay.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>

#include "tunnel/relay/test_socket_udp_relay.h"
#include "tunnel/relay/udp_datagram.h"

// The path's start; socket_udp_relay_running_test.cpp tests the running path.
namespace tunnel {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

class SocketUdpRelayTest : public SocketUdpRelayFixture {};

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

TEST_F(SocketUdpRelayTest, ALaterAttemptMayBeAcknowledged) {
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
    // As when the relay's computer reports a closed port.
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

TEST_F(SocketUdpRelayTest, ARelayThatRefusesEveryHelloIsStillAskedFourTimes) {
  AcknowledgeNothing();
  world_.FailAttempts(kConnectionReset);
  const milliseconds before = world_.Now();
  Start();
  EXPECT_EQ(world_.Now() - before, milliseconds(3600));
  EXPECT_EQ(world_.Sent().size(), 4U);
  EXPECT_EQ(world_.Pauses(), std::vector<milliseconds>(180, milliseconds(20)));
  EXPECT_FALSE(relay_.IsReady());
}

TEST_F(SocketUdpRelayTest, FailedHellosStillTakeTheirTime) {
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
  EXPECT_EQ(world_.Now() - before, milliseconds(900));  // the second attempt takes no time
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

TEST_F(SocketUdpRelayTest, BothThreadsEndWithTheTunnelWithoutAClose) {
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

TEST_F(SocketUdpRelayTest, AStopWhileTheNameIsResolvedLeavesNothingToSend) {
  std::unique_ptr<SocketUdpRelay> relay;
  world_.beforeOpen = [&](const std::function<bool()>& isCancelled) {
    EXPECT_FALSE(isCancelled());
    keepGoing_ = false;
    EXPECT_TRUE(isCancelled());
    relay->Close();  // finds nothing to close
  };
  relay = std::make_unique<SocketUdpRelay>(host_, world_);
  relay->StartUdpRelay({});
  EXPECT_FALSE(relay->IsReady());
  EXPECT_TRUE(world_.Sent().empty());
  // The threads have started; the close that follows every stop ends them.
  relay->Close();
  relay->Join();
  EXPECT_EQ(world_.OpenSockets(), 0);
}

TEST_F(SocketUdpRelayTest, APathClosedAtTheEndOfItsStartDoesNotBecomeReady) {
  std::atomic<bool> isClosed{false};
  std::atomic<int> reports{0};
  std::unique_ptr<SocketUdpRelay> relay;
  FakeRelayHost host;
  host.keepGoing = [&]() {
    // After the acknowledgement, but before its report.
    const bool isAsked = std::ranges::count(world_.Timeouts(), milliseconds(2000)) > 0;
    if (isAsked && !isClosed.exchange(true)) relay->Close();
    return true;
  };
  host.readyChanged = [&](bool) { ++reports; };
  relay = std::make_unique<SocketUdpRelay>(host, world_);
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

}  // namespace
}  // namespace tunnel
