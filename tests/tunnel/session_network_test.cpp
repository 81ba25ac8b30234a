#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <string>
#include <vector>

#include "platform/mutex.h"
#include "text/utf8.h"
#include "tunnel/driver/windivert.h"
#include "tunnel/packets/bytes.h"
#include "tunnel/packets/test_packets.h"
#include "tunnel/relay/test_frames.h"
#include "tunnel/test_session.h"

// The session when the computer sleeps, changes networks or has driver trouble.
namespace tunnel {
namespace {

using std::chrono::milliseconds;

constexpr wchar_t kPaused[] = L"局域网发现已暂停：中继恢复前不截取本机的广播。";
constexpr wchar_t kResumed[] = L"局域网发现已恢复。";
constexpr wchar_t kFragment[] =
    L"警告：遇到被分片的数据包，截取已停止，现在访问不到现场；"
    L"请点“断开”再点“连接”，并让发送它的软件改用更小的数据包。";
constexpr char kBroadcasts[] = "udp and ip.DstAddr == 255.255.255.255";

class SessionNetworkTest : public SessionFixture {
 protected:
  SessionNetworkTest() {
    TunnelObserver observer;
    observer.notice = [this](const std::wstring& line) {
      {
        const platform::MutexLock held(lock_);
        notices_.push_back(line);
      }
      changed_.NotifyAll();
    };
    session_->Observe(std::move(observer));
  }

  // The lines so far, once there are `count`.
  std::vector<std::wstring> Notices(std::size_t count) {
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    const platform::MutexLock held(lock_);
    while (notices_.size() < count && std::chrono::steady_clock::now() < end) {
      changed_.WaitFor(lock_, milliseconds(100));
    }
    return notices_;
  }

  void Start(bool discovery) {
    request_.discoveryMode = discovery;
    session_->Start(request_);
    ASSERT_TRUE(relay_.WaitForConnections(1));
  }
  // Cuts the connection and returns once the session waits for its next attempt.
  void LoseTheRelay() {
    world_.HoldPauses();
    relay_.CutConnection();
    ASSERT_TRUE(world_.WaitForPauses(1));
  }
  void FindTheRelay() {
    world_.ReleasePause();
    ASSERT_TRUE(relay_.WaitForConnections(2));
  }
  // For each capturing handle opened so far, whether its filter includes broadcasts.
  std::vector<bool> Broadcasts() const {
    std::vector<bool> result;
    for (const FakeDriver::OpenCall& call : driver_.Opened()) {
      if (call.flags == 0) result.push_back(call.filter.find(kBroadcasts) != std::string::npos);
    }
    return result;
  }

  platform::Mutex lock_;
  platform::Condition changed_;
  std::vector<std::wstring> notices_ GUARDED_BY(lock_);
};

TEST_F(SessionNetworkTest, DiscoveryPausesWhileTheRelayIsAway) {
  Start(true);
  LoseTheRelay();
  EXPECT_EQ(Notices(1), std::vector<std::wstring>{kPaused});
  EXPECT_EQ(Broadcasts(), (std::vector<bool>{true, false}));
  FindTheRelay();
  EXPECT_EQ(Notices(2), (std::vector<std::wstring>{kPaused, kResumed}));
  EXPECT_EQ(Broadcasts(), (std::vector<bool>{true, false, true}));
  // Each new handle must open before the old one closes.
  const auto opened = driver_.Opened();
  EXPECT_EQ(opened.back().filter, opened.front().filter);
  EXPECT_EQ(opened.back().priority, -300);
  EXPECT_EQ(opened.back().openBefore, 2U);
  EXPECT_EQ(opened[opened.size() - 2].openBefore, 2U);
  EXPECT_EQ(driver_.OpenHandles(), 2U);
}

// The tunnel stays up but nothing is sent any more, so the engineer must be warned.
TEST_F(SessionNetworkTest, AFragmentThatEndsTheCaptureIsReportedOnceForEachConnection) {
  Packet fragment = PacketOf(kUdp);
  WriteU16Be(fragment, 6, 0x2000);
  for (std::size_t round = 1; round <= 2; ++round) {
    session_->Start(request_);
    driver_.Capture(PacketOf(kPing), {});
    ASSERT_TRUE(relay_.WaitForFrames(round));
    driver_.Capture(fragment, {});
    EXPECT_EQ(Notices(round), std::vector<std::wstring>(round, kFragment));
    EXPECT_TRUE(session_->IsRunning());
    EXPECT_TRUE(session_->IsRelayConnected());
    ASSERT_TRUE(relay_.Push(ServerFrame(0x82, PacketOf(kPingReply))));
    EXPECT_TRUE(driver_.WaitForSent(round)) << "what comes from the site still arrives";
    session_->Stop();
    EXPECT_EQ(Notices(round).size(), round);
  }
}

TEST_F(SessionNetworkTest, WithoutDiscoveryTheCaptureStaysAsItIs) {
  Start(false);
  LoseTheRelay();
  FindTheRelay();
  ASSERT_TRUE(world_.WaitForUdpStarts(2));
  session_->Stop();
  EXPECT_EQ(Broadcasts(), std::vector<bool>{false});
  EXPECT_TRUE(Notices(0).empty());
}

TEST_F(SessionNetworkTest, ACaptureThatCannotBeReopenedContinuesUnchanged) {
  Start(true);
  driver_.FailNth(FakeDriver::Call::Open, 1);
  driver_.SetOpenError(5);
  LoseTheRelay();
  const std::wstring line = Notices(1).at(0);
  EXPECT_EQ(line.find(L"警告：局域网发现未能暂停。WinDivertOpen failed for filter: "), 0U);
  EXPECT_NE(line.find(DescribeDriverError(5)), std::wstring::npos);
  EXPECT_EQ(driver_.OpenHandles(), 2U);
  driver_.FailNth(FakeDriver::Call::Open, 1);
  FindTheRelay();
  EXPECT_EQ(Notices(2).at(1).find(L"警告：局域网发现未能恢复，请断开后重新连接。WinDivertOpen"),
            0U);
  driver_.Capture(PacketOf(kPing), {});
  EXPECT_TRUE(relay_.WaitForFrames(1));
}

TEST_F(SessionNetworkTest, AStoppedTunnelReopensNothing) {
  Start(true);
  LoseTheRelay();
  ASSERT_EQ(Notices(1).size(), 1U);
  session_->Stop();
  ExpectNothingLeft();
  EXPECT_EQ(Broadcasts(), (std::vector<bool>{true, false}));
}

TEST_F(SessionNetworkTest, ARelayThatNoLongerAnswersIsReplacedAtOnce) {
  Start(false);
  // The watch ignores a connection that is not read yet; an answered ping proves that it is.
  ASSERT_TRUE(relay_.Push(ServerFrame(0x89, {})));
  ASSERT_TRUE(relay_.WaitForFrames(1));
  world_.HoldPauses();  // never released, so the wait must be cut short
  session_->LookAtNetwork();
  ASSERT_TRUE(relay_.WaitForFrames(2));
  EXPECT_EQ(relay_.Frames()[1].firstByte, 0x89);  // ping
  EXPECT_TRUE(relay_.WaitForConnections(2));
  EXPECT_EQ(world_.Pauses(), std::vector<milliseconds>{milliseconds(1000)});
}

TEST_F(SessionNetworkTest, ARelayThatAnswersIsKept) {
  relay_.SetBehaviour([this](TestPeer& peer) {
    relay_.TakeRequest(peer);
    peer.AcceptUpgrade();
    while (const auto frame = peer.ReadFrame()) {
      if (frame->firstByte == 0x89) peer.Send(ServerFrame(0x8A, frame->payload));
    }
  });
  session_->Start(request_);
  for (int looks = 0; looks < 3; ++looks) {
    session_->LookAtNetwork();
    std::this_thread::sleep_for(milliseconds(700));  // in all, longer than a silent relay's limit
  }
  EXPECT_TRUE(session_->IsRelayConnected());
  EXPECT_EQ(relay_.Requests().size(), 1U);
}

TEST_F(SessionNetworkTest, AWaitBeforeAReconnectIsCutShort) {
  Start(false);
  relay_.SetBehaviour(TestRelay::Refuse());
  LoseTheRelay();
  world_.ReleasePause();
  ASSERT_TRUE(world_.WaitForPauses(2));
  relay_.SetBehaviour(relay_.Serve());
  session_->LookAtNetwork();
  EXPECT_TRUE(relay_.WaitForConnections(2));
  ASSERT_TRUE(world_.WaitForUdpStarts(2));
  // The reconnect has consumed the hurry signal, so the next wait has its full length.
  relay_.CutConnection();
  ASSERT_TRUE(world_.WaitForPauses(3));
  EXPECT_EQ(relay_.Requests().size(), 2U);
}

TEST_F(SessionNetworkTest, LookingWithoutATunnelDoesNothing) {
  session_->LookAtNetwork();
  Start(false);
  driver_.Capture(PacketOf(kPing), {});
  ASSERT_TRUE(relay_.WaitForFrames(1));
  session_->Stop();
  EXPECT_EQ(relay_.Frames().size(), 1U);
  session_->LookAtNetwork();
}

TEST_F(SessionNetworkTest, ANewOverlapIsReportedOnce) {
  Start(false);  // 10.0.0.0/8 directly, 192.168.1.0/24 as 172.31.0.0/24
  world_.SetLocalNetworks({{{0xC0A80100, 24}, {0x0A010000, 16}, {0xAC1F0000, 20}}, 0});
  session_->LookAtNetwork();
  const std::vector<std::wstring> expected{
      L"警告：本机新接入的网段 10.1.0.0/16 与现场访问网段 10.0.0.0/8 "
      L"重叠，现场设备可能无法访问；请断"
      L"开后重新连接，以重新分配网段。",
      L"警告：本机新接入的网段 172.31.0.0/20 与现场访问网段 172.31.0.0/24 "
      L"重叠，现场设备可能无法访问；"
      L"请断开后重新连接，以重新分配网段。"};
  std::vector<std::wstring> told = Notices(2);
  std::ranges::sort(told);
  EXPECT_EQ(told, expected);
  // The second check ends by replacing a relay that does not answer.
  session_->LookAtNetwork();
  EXPECT_TRUE(relay_.WaitForConnections(2));
  EXPECT_EQ(Notices(2).size(), 2U);
}

TEST_F(SessionNetworkTest, AnUnreadableAddressListIsReportedAndTreatedAsEmpty) {
  world_.SetLocalNetworks({{}, 111});
  const TunnelStarted started = session_->Start(request_);
  EXPECT_EQ(Notices(1),
            std::vector<std::wstring>{L"警告：无法读取本机网络列表（错误 111"
                                      L"），现场网段若与本机网段相同将无法访问；请断开后重"
                                      L"新连接。"});
  EXPECT_EQ(started.mappingText, L"直连网段 10.0.0.0/8\r\n直连网段 192.168.1.0/24");
}

TEST_F(SessionNetworkTest, ALeftoverDriverIsStoppedAndTheOpenRetriedOnce) {
  for (const std::uint32_t code : {1058U, 1072U}) {
    const std::size_t before = world_.Commands().size();
    driver_.SetOpenError(code);
    driver_.FailNth(FakeDriver::Call::Open, 1);
    session_->Start(request_);
    EXPECT_TRUE(session_->IsRunning());
    const auto commands = world_.Commands();
    ASSERT_EQ(commands.size(), before + 4);
    EXPECT_EQ(commands[before], L"sc stop WinDivert64");
    session_->Stop();
  }
}

TEST_F(SessionNetworkTest, ADriverThatCannotBeOpenedFailsTheStartWithCodeAndRemedy) {
  const auto failure = [this](std::uint32_t code, int opens) {
    driver_.SetOpenError(code);
    driver_.FailNth(FakeDriver::Call::Open, 1, opens);
    const std::size_t before = driver_.Opened().size();
    std::string text;
    try {
      session_->Start(request_);
    } catch (const std::runtime_error& error) {
      text = error.what();
    }
    EXPECT_EQ(driver_.Opened().size(), before + static_cast<std::size_t>(opens));
    ExpectNothingLeft();
    return text;
  };
  const auto expected = [this](std::uint32_t code) {
    return "WinDivertOpen failed for filter: " + driver_.Opened().back().filter + "\r\n" +
           text::ToUtf8(DescribeDriverError(code));
  };
  const std::string signature = failure(577, 1);
  EXPECT_EQ(signature, expected(577));
  const std::string disabled = failure(1058, 2);
  EXPECT_EQ(disabled, expected(1058));
}

TEST_F(SessionNetworkTest, StoppedForGoodItNeverStartsAgain) {
  Start(false);
  session_->StopForGood();
  ExpectNothingLeft();
  const std::size_t commands = world_.Commands().size();
  EXPECT_THROW(session_->Start(request_), std::runtime_error);
  session_->Stop();
  EXPECT_THROW(session_->Start(request_), std::runtime_error);
  EXPECT_EQ(relay_.Requests().size(), 1U);
  EXPECT_EQ(world_.Commands().size(), commands + 4);  // only those of the stop
}

}  // namespace
}  // namespace tunnel
