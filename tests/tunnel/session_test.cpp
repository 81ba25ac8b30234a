#include "tunnel/session.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <stdexcept>
#include <thread>

#include "tunnel/driver/fake_driver.h"
#include "tunnel/packets/test_packets.h"
#include "tunnel/relay/test_relay.h"
#include "tunnel/test_session.h"

namespace tunnel {
namespace {

using std::chrono::milliseconds;

constexpr wchar_t kStarted[] = L"工程师端软件隧道已启动：c1";
constexpr wchar_t kStopped[] = L"软件隧道已停止。";
constexpr wchar_t kWasNotRunning[] = L"软件隧道运行中。";

const std::vector<std::wstring> kFourCommands = {L"sc stop WinDivert64", L"sc delete WinDivert64",
                                                 L"sc stop WinDivert", L"sc delete WinDivert"};

class SessionTest : public SessionFixture {};

TEST_F(SessionTest, StartOpensEverythingAndReturnsTheRoutes) {
  const TunnelStarted started = session_->Start(request_);
  EXPECT_EQ(started.text, kStarted);
  EXPECT_EQ(started.accessRoutes, (std::vector<std::wstring>{L"10.0.0.0/8", L"172.31.0.0/24"}));
  EXPECT_EQ(started.mappingText,
            L"直连网段 10.0.0.0/8\r\nNAT模式IP 172.31.0.0/24 -> 现场真实 192.168.1.0/24");
  EXPECT_TRUE(session_->IsRunning());
  EXPECT_TRUE(session_->IsRelayConnected());
  EXPECT_EQ(session_->LastRelayError(), "");
  EXPECT_EQ(world_.Take(), std::vector<std::string>{"udp start with 0 handles"});

  const std::vector<FakeDriver::OpenCall> opened = driver_.Opened();
  ASSERT_EQ(opened.size(), 2U);
  EXPECT_EQ(opened[0].filter,
            "outbound and ip and !impostor and (icmp or tcp or udp) and ("
            "(ip.DstAddr >= 10.0.0.0 and ip.DstAddr <= 10.255.255.255) or "
            "(ip.DstAddr >= 172.31.0.0 and ip.DstAddr <= 172.31.0.255))");
  EXPECT_EQ(opened[0].layer, 0);
  EXPECT_EQ(opened[0].priority, -300);
  EXPECT_EQ(opened[0].flags, 0U);
  EXPECT_EQ(opened[1].filter, "false");
  EXPECT_EQ(opened[1].priority, -301);
  EXPECT_EQ(opened[1].flags, 8U);
  ASSERT_TRUE(relay_.WaitForRequests(1));
  EXPECT_TRUE(relay_.Requests()[0].starts_with("GET /api/relay/client/c1?engineerId=ENG-1 HTTP"));
}

TEST_F(SessionTest, DiscoveryModeIsInTheFilter) {
  request_.discoveryMode = true;
  session_->Start(request_);
  EXPECT_NE(driver_.Opened()[0].filter.find("(udp and ip.DstAddr == 255.255.255.255)"),
            std::string::npos);
}

TEST_F(SessionTest, StopClosesEverythingAndRemovesTheService) {
  session_->Start(request_);
  EXPECT_EQ(session_->Stop(), kStopped);
  ExpectNothingLeft();
  EXPECT_FALSE(session_->IsRelayConnected());
  EXPECT_EQ(world_.Commands(), kFourCommands);
}

TEST_F(SessionTest, StopClosesInTheStatedOrder) {
  session_->Start(request_);
  world_.Take();
  session_->Stop();
  const std::vector<std::string> events = world_.Take();
  // The UDP path is closed first without waiting, and again once all threads have ended.
  ASSERT_GE(events.size(), 3U);
  EXPECT_EQ(events.front(), "udp close with 0 handles");
  EXPECT_EQ(std::ranges::count(events, "udp join"), 1);
  const auto unloaded = std::ranges::find(events, "command with 0 libraries");
  EXPECT_LT(std::ranges::find(events, "udp join"), unloaded);
  EXPECT_EQ(std::ranges::count(events, "command with 0 libraries"), 4);
}

TEST_F(SessionTest, StopOfATunnelThatNeverStartedStillRemovesTheService) {
  EXPECT_EQ(session_->Stop(), kWasNotRunning);
  EXPECT_EQ(world_.Commands(), kFourCommands);
  EXPECT_EQ(session_->Stop(), kWasNotRunning);
  EXPECT_EQ(world_.Commands().size(), 8U);
}

TEST_F(SessionTest, CommandThatCannotBeStartedIsSkipped) {
  world_.failCommands = true;
  EXPECT_EQ(session_->Stop(), kWasNotRunning);
  EXPECT_EQ(world_.Commands(), kFourCommands);
}

TEST_F(SessionTest, SecondStartStopsTheFirst) {
  session_->Start(request_);
  request_.connectionId = L"c2";
  EXPECT_EQ(session_->Start(request_).text, L"工程师端软件隧道已启动：c2");
  EXPECT_EQ(world_.Commands(), kFourCommands);
  EXPECT_EQ(driver_.OpenHandles(), 2U);
  EXPECT_EQ(driver_.LoadedLibraries(), 1);
  ASSERT_TRUE(relay_.WaitForRequests(2));
  EXPECT_TRUE(relay_.Requests()[1].starts_with("GET /api/relay/client/c2?"));
  EXPECT_EQ(session_->Stop(), kStopped);
  ExpectNothingLeft();
}

TEST_F(SessionTest, DestructionStopsTheTunnel) {
  session_->Start(request_);
  session_.reset();
  EXPECT_EQ(driver_.OpenHandles(), 0U);
  EXPECT_EQ(driver_.LoadedLibraries(), 0);
  EXPECT_EQ(world_.Commands(), kFourCommands);
}

TEST_F(SessionTest, EachFailedStartNamesItsReasonAndLeavesNothing) {
  const struct {
    const char* name;
    std::function<void()> spoil;
    const char* text;
  } rows[] = {
      {"address", [this]() { request_.assignedAddress = L"10.99.0"; },
       "Invalid assigned tunnel address."},
      {"routes",
       [this]() {
         request_.routes = {L"nonsense", L"10.0.0.0"};
       },
       "No valid target routes were configured."},
      {"mapping space",
       [this]() {
         request_.routes = {L"10.0.0.0/8", L"10.0.0.0/8"};
       },
       "No available NAT mapping network was found in 172.31.0.0/16."},
      {"driver",
       [this]() { world_.driverError = "WinDivert.dll was not found in the runtime cache."; },
       "WinDivert.dll was not found in the runtime cache."},
      {"secure relay", [this]() { request_.serverUrl = L"https://127.0.0.1:1"; },
       "wss relay is not supported by the native Winsock transport."},
      {"wss relay", [this]() { request_.serverUrl = L"wss://127.0.0.1:1"; },
       "wss relay is not supported by the native Winsock transport."},
      {"wss relay in capitals", [this]() { request_.serverUrl = L" WSS://127.0.0.1:1/ "; },
       "wss relay is not supported by the native Winsock transport."},
      {"relay url", [this]() { request_.serverUrl = L"ftp://127.0.0.1"; },
       "WinHttpCrackUrl failed for URL: ftp://127.0.0.1/api/relay/client/c1?engineerId=ENG-1"},
      {"relay", [this]() { relay_.SetBehaviour(TestRelay::Refuse()); },
       "WebSocket handshake receive failed, error "},
      {"udp", [this]() { world_.udpError = "UDP socket failed."; }, "UDP socket failed."},
      {"filter", [this]() { driver_.FailNth(FakeDriver::Call::Open, 1); },
       "WinDivertOpen failed for filter: outbound and ip and "},
      {"inject", [this]() { driver_.FailNth(FakeDriver::Call::Open, 2); },
       "WinDivertOpen failed for filter: false"},
  };
  const TunnelRequest good = request_;
  for (const auto& row : rows) {
    row.spoil();
    std::string text;
    try {
      session_->Start(request_);
    } catch (const std::runtime_error& error) {
      text = error.what();
    }
    EXPECT_TRUE(text.starts_with(row.text)) << row.name << ": " << text;
    ExpectNothingLeft();
    EXPECT_FALSE(session_->IsRelayConnected()) << row.name;
    // Without the fault, the same session starts.
    request_ = good;
    world_.driverError = world_.udpError = nullptr;
    relay_.SetBehaviour(relay_.Serve());
    EXPECT_EQ(session_->Start(request_).text, kStarted) << row.name;
    session_->Stop();
  }
}

TEST_F(SessionTest, AWsAddressStartsAsItsHttpFormDoes) {
  request_.serverUrl = L"ws" + relay_.ServerUrl().substr(4);
  EXPECT_EQ(session_->Start(request_).text, kStarted);
  ASSERT_TRUE(relay_.WaitForRequests(1));
  EXPECT_TRUE(relay_.Requests()[0].starts_with("GET /api/relay/client/c1?engineerId=ENG-1 HTTP"));
}

TEST_F(SessionTest, FailureWhileOpeningRunsTheStop) {
  driver_.FailNth(FakeDriver::Call::Open, 1);
  EXPECT_THROW(session_->Start(request_), std::runtime_error);
  EXPECT_EQ(world_.Commands(), kFourCommands);
}

TEST_F(SessionTest, CarriesAPingThereAndBack) {
  session_->Start(request_);
  WinDivertAddress address;
  address.interfaceIndex = 7;
  driver_.Capture(PacketOf(kPing), address);
  ASSERT_TRUE(relay_.WaitForFrames(1));
  EXPECT_EQ(relay_.Frames()[0].firstByte, 0x82);
  EXPECT_EQ(relay_.Frames()[0].payload, PacketOf(kPingAtSite));
  ASSERT_TRUE(relay_.Push(ServerFrame(0x82, PacketOf(kPingReply))));
  ASSERT_TRUE(driver_.WaitForSent(1));
  EXPECT_EQ(driver_.SentPackets()[0].packet, PacketOf(kPingReplyAtHome));
  EXPECT_EQ(driver_.SentPackets()[0].address.interfaceIndex, 7U);
}

TEST_F(SessionTest, AnErrorOfTheInboundPathCostsOnePacketOnly) {
  session_->Start(request_);
  driver_.Capture(PacketOf(kPing), {});
  ASSERT_TRUE(relay_.WaitForFrames(1));
  driver_.FailNth(FakeDriver::Call::Send, 1);
  for (int i = 0; i < 2; ++i) ASSERT_TRUE(relay_.Push(ServerFrame(0x82, PacketOf(kPingReply))));
  EXPECT_TRUE(driver_.WaitForSent(1));
  EXPECT_TRUE(session_->IsRelayConnected());
}

TEST_F(SessionTest, TheUdpPathGetsWhatItNeedsOfTheTunnel) {
  EXPECT_FALSE(world_.UdpHooks().keepGoing());
  session_->Start(request_);
  EXPECT_TRUE(world_.UdpHooks().keepGoing());
  ASSERT_EQ(world_.UdpStarts().size(), 1U);
  EXPECT_EQ(world_.UdpStarts()[0].serverUrl, request_.serverUrl);
  EXPECT_EQ(world_.UdpStarts()[0].connectionId, L"c1");
  EXPECT_EQ(world_.UdpStarts()[0].engineerId, L"ENG-1");
  driver_.Capture(PacketOf(kPing), {});
  ASSERT_TRUE(relay_.WaitForFrames(1));
  driver_.FailNth(FakeDriver::Call::Send, 1);
  for (int i = 0; i < 2; ++i) {  // only the first is lost
    Packet reply = PacketOf(kPingReply);
    EXPECT_NO_THROW(world_.UdpHooks().inbound(reply));
  }
  ASSERT_EQ(driver_.SentPackets().size(), 1U);
  EXPECT_EQ(driver_.SentPackets()[0].packet, PacketOf(kPingReplyAtHome));
  session_->Stop();
  EXPECT_FALSE(world_.UdpHooks().keepGoing());
}

TEST_F(SessionTest, RubbishFromTheRelayIsDropped) {
  session_->Start(request_);
  driver_.Capture(PacketOf(kPing), {});
  ASSERT_TRUE(relay_.WaitForFrames(1));
  for (const Bytes& rubbish : {Bytes(), BytesOf("x"), Pattern(65536), Pattern(200000)}) {
    ASSERT_TRUE(relay_.Push(ServerFrame(0x82, rubbish)));
  }
  ASSERT_TRUE(relay_.Push(ServerFrame(0x82, PacketOf(kPingReply))));
  ASSERT_TRUE(driver_.WaitForSent(1));
  EXPECT_EQ(driver_.SentPackets()[0].packet, PacketOf(kPingReplyAtHome));
}

TEST_F(SessionTest, FlowsOfAnEarlierTunnelAreForgotten) {
  session_->Start(request_);
  driver_.Capture(PacketOf(kPing), {});
  ASSERT_TRUE(relay_.WaitForFrames(1));
  session_->Start(request_);
  ASSERT_TRUE(relay_.WaitForConnections(2));
  ASSERT_TRUE(relay_.Push(ServerFrame(0x82, PacketOf(kPingReply))));  // does not match any flow
  driver_.Capture(PacketOf(kUdp), {});
  ASSERT_TRUE(relay_.WaitForFrames(2));
  ASSERT_TRUE(relay_.Push(ServerFrame(0x82, PacketOf(kUdpReply))));
  ASSERT_TRUE(driver_.WaitForSent(1));
  EXPECT_EQ(driver_.SentPackets()[0].packet, PacketOf(kUdpReplyAtHome));
}

TEST_F(SessionTest, ALostRelayIsReplacedAndTrafficFlowsAgain) {
  session_->Start(request_);
  ASSERT_TRUE(relay_.WaitForConnections(1));
  relay_.CutConnection();
  ASSERT_TRUE(relay_.WaitForConnections(2));
  ASSERT_TRUE(world_.WaitForUdpStarts(2));
  EXPECT_EQ(world_.Pauses(), std::vector<milliseconds>{milliseconds(1000)});
  driver_.Capture(PacketOf(kPing), {});
  EXPECT_TRUE(relay_.WaitForFrames(1));
  EXPECT_TRUE(session_->IsRelayConnected());
  EXPECT_EQ(session_->LastRelayError(), "");
}

TEST_F(SessionTest, ACloseFrameFromTheRelayIsALoss) {
  session_->Start(request_);
  relay_.Push(ServerFrame(0x88, {}));  // the client may be gone before this returns
  EXPECT_TRUE(relay_.WaitForConnections(2));
}

TEST_F(SessionTest, WaitsDoubleUpToTenSecondsAndBeginAgainAfterASuccess) {
  session_->Start(request_);
  ASSERT_TRUE(relay_.WaitForConnections(1));
  world_.HoldPauses();
  relay_.SetBehaviour(TestRelay::Refuse());
  relay_.CutConnection();
  for (int i = 0; i < 6; ++i) world_.ReleasePause();
  ASSERT_TRUE(world_.WaitForPauses(7));  // the seventh is in progress
  EXPECT_FALSE(session_->IsRelayConnected());
  EXPECT_TRUE(session_->LastRelayError().starts_with("WebSocket handshake "))
      << session_->LastRelayError();
  relay_.SetBehaviour(relay_.Serve());
  world_.ReleasePause();
  ASSERT_TRUE(relay_.WaitForConnections(2));
  ASSERT_TRUE(world_.WaitForUdpStarts(2));
  EXPECT_TRUE(session_->IsRelayConnected());
  EXPECT_EQ(session_->LastRelayError(), "");
  relay_.CutConnection();
  ASSERT_TRUE(world_.WaitForPauses(8));
  std::vector<milliseconds> expected;
  for (const int seconds : {1, 2, 4, 8, 10, 10, 10, 1}) expected.emplace_back(seconds * 1000);
  EXPECT_EQ(world_.Pauses(), expected);
}

TEST_F(SessionTest, AUdpPathThatCannotOpenFailsTheReconnect) {
  session_->Start(request_);
  ASSERT_TRUE(relay_.WaitForConnections(1));
  world_.HoldPauses();
  world_.udpError = "UDP socket failed.";
  relay_.CutConnection();
  world_.ReleasePause();
  ASSERT_TRUE(world_.WaitForPauses(2));
  EXPECT_EQ(session_->LastRelayError(), "UDP socket failed.");
  EXPECT_EQ(world_.Pauses().back(), milliseconds(2000));
  world_.udpError = nullptr;
  world_.ReleasePause();
  EXPECT_TRUE(relay_.WaitForConnections(3));
}

TEST_F(SessionTest, StopEndsTheWaitBeforeAReconnect) {
  session_->Start(request_);
  ASSERT_TRUE(relay_.WaitForConnections(1));
  world_.HoldPauses();
  relay_.CutConnection();
  ASSERT_TRUE(world_.WaitForPauses(1));
  EXPECT_EQ(session_->Stop(), kStopped);
  ExpectNothingLeft();
  EXPECT_EQ(relay_.Requests().size(), 1U);
  EXPECT_EQ(session_->LastRelayError(), "");  // no attempt was made
}

TEST_F(SessionTest, StopEndsARelayThatStaysSilentInTheHandshake) {
  session_->Start(request_);
  ASSERT_TRUE(relay_.WaitForConnections(1));
  relay_.SetBehaviour([this](TestPeer& peer) {
    relay_.TakeRequest(peer);
    peer.WaitForEnd();
  });
  relay_.CutConnection();
  ASSERT_TRUE(relay_.WaitForRequests(2));
  EXPECT_EQ(session_->Stop(), kStopped);
  ExpectNothingLeft();
}

TEST_F(SessionTest, StartOvertakenByAStopFailsAndLeavesNothing) {
  relay_.SetBehaviour([this](TestPeer& peer) {
    relay_.TakeRequest(peer);
    peer.WaitForEnd();
  });
  std::atomic<bool> failed{false};
  std::thread starter([&]() {
    try {
      session_->Start(request_);
    } catch (const std::runtime_error&) {
      failed = true;
    }
  });
  EXPECT_TRUE(relay_.WaitForRequests(1));
  EXPECT_EQ(session_->Stop(), kWasNotRunning);
  starter.join();
  EXPECT_TRUE(failed);
  ExpectNothingLeft();
}

}  // namespace
}  // namespace tunnel
