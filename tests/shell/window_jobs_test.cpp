#include <gtest/gtest.h>

#include <algorithm>
#include <future>
#include <stdexcept>

#include "settings/json.h"
#include "shell/window_fixture.h"
#include "shell/window_messages.h"

namespace shell {
namespace {

using Lines = std::vector<std::wstring>;
using Names = std::vector<std::string>;

constexpr wchar_t kConnectBusy[] = L"正在请求连接授权...";
constexpr wchar_t kRetryBusy[] = L"正在自动重试连接授权...";
constexpr wchar_t kRetryLine[] = L"授权未恢复，将每 5 秒自动重试连接。";

class WindowJobs : public WindowTest {
 protected:
  WindowJobs() { OpenWithReadyPage(); }

  // Stops the retry timer. Returns whether it was running.
  bool TakeRetryTimer() { return ::KillTimer(state_->window, kRetryTimer) != FALSE; }

  std::wstring StatusLine(std::size_t message) const {
    return settings::JsonStringOrEmpty(settings::ReadJsonDocument(page_.posted.at(message)),
                                       L"statusline");
  }
};

TEST_F(WindowJobs, ShowABusyTextAndThenTheResult) {
  Connect(L"", L"c1");
  EXPECT_EQ(logged_, (Lines{kConnectBusy, L"结果"}));
  EXPECT_EQ(PostedKinds(), (Names{"state", "log", "apply", "state", "state", "log"}));
  EXPECT_EQ(StatusLine(0), kConnectBusy);
  EXPECT_EQ(StatusLine(3), kConnectBusy);
  EXPECT_EQ(StatusLine(4), L"结果");
  EXPECT_EQ(state_->lastMessage, L"结果");
  EXPECT_EQ(Record().connectionId, L"c1");
  EXPECT_FALSE(state_->worker.joinable());
}

TEST_F(WindowJobs, WorkOnACopyOfTheSettingsWithTheFormsFields) {
  settings::Settings given;
  jobBody_ = [&given](settings::Settings& settings, tunnel::Tunnel&) {
    given = settings;
    settings.deviceNumber = L"D-1";
    return std::wstring();
  };
  PageSends(L"{\"action\":\"test\",\"f\":{\"secret\":\" s \",\"testip\":\"1.2.3.4\"}}");
  EXPECT_EQ(Record().deviceSecret, L"s");
  FinishJob();
  EXPECT_EQ(given.deviceSecret, L"s");
  EXPECT_EQ(given.testIp, L"1.2.3.4");
  EXPECT_EQ(Record().deviceNumber, L"D-1");
  EXPECT_EQ(OnDisk().deviceNumber, L"D-1");
}

TEST_F(WindowJobs, ShowTheirExceptions) {
  jobBody_ = [](settings::Settings&, tunnel::Tunnel&) -> std::wstring {
    throw std::runtime_error("out of order");
  };
  PageSends(L"{\"action\":\"stop\",\"f\":{}}");
  FinishJob();
  EXPECT_EQ(logged_.back(), L"Error: out of order");
  EXPECT_TRUE(page_.posted.back().ends_with(L"\"cls\":\"er\"}"));
  EXPECT_FALSE(state_->busy);
}

TEST_F(WindowJobs, AreDroppedSilentlyWhileOneRuns) {
  std::promise<void> begun;
  std::promise<void> gate;
  jobBody_ = [&begun, opened = gate.get_future().share()](settings::Settings&, tunnel::Tunnel&) {
    begun.set_value();
    opened.wait();
    return std::wstring(L"完成");
  };
  PageSends(L"{\"action\":\"test\",\"f\":{\"secret\":\"first\"}}");
  Pump();
  begun.get_future().wait();
  ForgetRecords();
  for (const wchar_t* action : {L"connect", L"test", L"stop", L"desktop", L"secondary"}) {
    PageSends(L"{\"action\":\"" + std::wstring(action) + L"\",\"f\":{\"secret\":\"second\"}}");
  }
  Send(WM_COMMAND, 1009);
  Pump();
  EXPECT_TRUE(logged_.empty());
  EXPECT_TRUE(page_.posted.empty());
  EXPECT_TRUE(disk_.written.empty());
  EXPECT_EQ(Record().deviceSecret, L"first");
  gate.set_value();
  FinishJob();
  EXPECT_EQ(logged_, Lines{L"完成"});
}

// The window's queue may be full for a while or permanently.
TEST_F(WindowJobs, PostARefusedResultAgain) {
  refusedResultPosts_ = 3;
  Connect(L"", L"c1");
  EXPECT_EQ(logged_, (Lines{kConnectBusy, L"结果"}));
  EXPECT_FALSE(state_->busy);
}

TEST_F(WindowJobs, WithAnUndeliveredResultAreFoundByTheTimer) {
  refusedResultPosts_ = 1000;
  Connect(L"DEVICE_OFFLINE", L"");
  EXPECT_EQ(logged_, (Lines{kConnectBusy, L"结果", kRetryLine}));
  EXPECT_FALSE(state_->busy);
  EXPECT_EQ(::KillTimer(state_->window, kResultTimer), FALSE) << "it runs while a job does";
  refusedResultPosts_ = 0;
  Connect(L"", L"c1");
  EXPECT_EQ(Record().connectionId, L"c1");
}

TEST_F(WindowJobs, ResultTimerFindsNothingAfterANormalResult) {
  Send(WM_TIMER, kResultTimer);
  EXPECT_TRUE(logged_.empty());
}

TEST_F(WindowJobs, MayFollowOneAnother) {
  for (int i = 0; i < 3; ++i) Connect(L"", L"");
  EXPECT_EQ(jobsRun_, (Names{"connect", "connect", "connect"}));
}

TEST_F(WindowJobs, RefusalArmsTheRetryOnceAndLogsItOnce) {
  Connect(L"DEVICE_OFFLINE", L"");
  EXPECT_EQ(logged_, (Lines{kConnectBusy, L"结果", kRetryLine}));
  EXPECT_TRUE(state_->retryArmed);
  ForgetRecords();

  Send(WM_TIMER, kRetryTimer);
  FinishJob();
  EXPECT_EQ(logged_, (Lines{kRetryBusy, L"结果"}));
  EXPECT_EQ(jobsRun_, Names{"connect"});
  Connect(L"TRAFFIC_QUOTA_EXCEEDED", L"");
  EXPECT_EQ(std::count(logged_.begin(), logged_.end(), kRetryLine), 0);
  EXPECT_TRUE(state_->retryArmed);
  EXPECT_TRUE(TakeRetryTimer());
}

TEST_F(WindowJobs, SuccessEndsTheRetry) {
  Connect(L"DEVICE_OFFLINE", L"");
  Connect(L"", L"c1");
  EXPECT_FALSE(state_->retryArmed);
  EXPECT_FALSE(TakeRetryTimer());
  Connect(L"DEVICE_OFFLINE", L"");
  EXPECT_EQ(std::count(logged_.begin(), logged_.end(), kRetryLine), 2);
}

TEST_F(WindowJobs, AnotherRefusalEndsTheRetry) {
  Connect(L"DEVICE_OFFLINE", L"");
  Connect(L"INVALID_SECRET", L"");
  EXPECT_FALSE(state_->retryArmed);
  EXPECT_FALSE(TakeRetryTimer());
}

struct TimerRow {
  const char* name;
  bool busy;
  const wchar_t* connectionId;
  const wchar_t* code;
  WPARAM timer;
  bool starts;
};

TEST_F(WindowJobs, RetryTimerRepeatsTheRequestOnlyWhileNeeded) {
  const TimerRow rows[] = {
      {"refused", false, L"", L"DEVICE_OFFLINE", kRetryTimer, true},
      {"busy", true, L"", L"DEVICE_OFFLINE", kRetryTimer, false},
      {"connected", false, L"c1", L"DEVICE_OFFLINE", kRetryTimer, false},
      {"no longer refused", false, L"", L"", kRetryTimer, false},
      {"refused for good", false, L"", L"INVALID_SECRET", kRetryTimer, false},
      {"the unused timer", false, L"", L"DEVICE_OFFLINE", kUnusedTimer, false},
      {"a foreign timer", false, L"", L"DEVICE_OFFLINE", 7, false},
  };
  for (const TimerRow& row : rows) {
    ForgetRecords();
    state_->busy = row.busy;
    Edit([&row](settings::Settings& settings) {
      settings.connectionId = row.connectionId;
      settings.heartbeatMessage = row.code;
    });
    Send(WM_TIMER, row.timer);
    if (row.starts) FinishJob();
    state_->busy = false;
    EXPECT_EQ(jobsRun_, row.starts ? Names{"connect"} : Names{}) << row.name;
    EXPECT_EQ(logged_.empty(), !row.starts) << row.name;
  }
}

TEST_F(WindowJobs, ResultWithoutATextIsAnEmptyLine) {
  Send(kJobFinished);
  EXPECT_EQ(logged_, Lines{L""});
}

struct HeartbeatRow {
  const char* name;
  bool accepted;
  bool running;
  const wchar_t* stopText;
  bool stops;
  const wchar_t* wanted;
};

TEST_F(WindowJobs, RefusedHeartbeatStopsATunnelThatIsNoLongerAccepted) {
  const HeartbeatRow rows[] = {
      {"refused", false, true, L"软件隧道已停止。", true,
       L"拒绝\r\n中心服务未接受心跳，已停止本机软件隧道，避免显示假在线。\r\n软件隧道已停止。"},
      {"refused, nothing to say at the stop", false, true, L"", true,
       L"拒绝\r\n中心服务未接受心跳，已停止本机软件隧道，避免显示假在线。"},
      {"refused without a tunnel", false, false, L"x", false, L"拒绝"},
      {"accepted meanwhile", true, true, L"x", false, L"拒绝"},
      {"accepted, no tunnel", true, false, L"x", false, L"拒绝"},
  };
  for (const HeartbeatRow& row : rows) {
    ForgetRecords();
    Edit([&row](settings::Settings& settings) { settings.heartbeatAccepted = row.accepted; });
    state_->heartbeatRunning = true;
    tunnel_->running = row.running;
    tunnel_->stopText = row.stopText;
    tunnel_->stops = 0;
    SendText(kHeartbeatRefused, L"拒绝");
    Pump();
    EXPECT_EQ(tunnel_->stops, row.stops ? 1 : 0) << row.name;
    EXPECT_EQ(logged_, Lines{row.wanted}) << row.name;
    EXPECT_EQ(PostedKinds(), (Names{"apply", "state", "log"})) << row.name;
    EXPECT_FALSE(state_->heartbeatRunning) << row.name;
  }
}

TEST_F(WindowJobs, RefusedHeartbeatMayHaveNoText) {
  tunnel_->running = true;
  Send(kHeartbeatRefused);
  EXPECT_EQ(logged_, Lines{L"\r\n中心服务未接受心跳，已停止本机软件隧道，避免显示假在线。\r\n"
                           L"软件隧道已停止。"});
}

TEST_F(WindowJobs, NoticesAreLoggedUnlessEmpty) {
  SendText(kNotice, L"新版本");
  SendText(kNotice, L"");
  Send(kNotice);
  Send(kIgnored);
  EXPECT_EQ(logged_, Lines{L"新版本"});
}

TEST_F(WindowJobs, LostAndRegainedRelaysAreShownAndLogged) {
  tunnel_->running = true;
  tunnel_->relayConnected = false;
  tunnel_->observer.linkChanged(false);
  Pump();
  EXPECT_EQ(PostedKinds(), (Names{"state", "log"}));
  EXPECT_NE(page_.posted[0].find(L"软件隧道正在自动重连"), std::wstring::npos);
  EXPECT_EQ(logged_, Lines{L"警告：中继连接中断，软件隧道正在自动重连。"});
  ForgetRecords();

  tunnel_->relayConnected = true;
  tunnel_->observer.linkChanged(true);
  Pump();
  EXPECT_NE(page_.posted[0].find(L"\"state\":\"在线\""), std::wstring::npos);
  EXPECT_EQ(logged_, Lines{L"软件隧道已重新在线。"});
  ForgetRecords();

  tunnel_->running = false;
  tunnel_->observer.linkChanged(false);
  Pump();
  EXPECT_EQ(logged_, Lines{});
}

// The relay may be lost again before the window handles the report of its return.
TEST_F(WindowJobs, AQueuedReturnAndLossAreLoggedAsTheyHappened) {
  tunnel_->running = true;
  tunnel_->relayConnected = true;
  tunnel_->observer.linkChanged(true);
  tunnel_->relayConnected = false;
  tunnel_->observer.linkChanged(false);
  Pump();
  EXPECT_EQ(logged_,
            (Lines{L"软件隧道已重新在线。", L"警告：中继连接中断，软件隧道正在自动重连。"}));
}

TEST_F(WindowJobs, TheReasonOfAFailedReconnectIsLogged) {
  tunnel_->running = true;
  tunnel_->observer.reconnectFailed("out of order");
  Pump();
  EXPECT_EQ(logged_, Lines{L"警告：自动重连未成功（out of order），将继续重试。"});
}

TEST_F(WindowJobs, TheTransportOfSmallPacketsIsLogged) {
  tunnel_->running = true;
  tunnel_->observer.udpChanged(true);
  tunnel_->observer.udpChanged(false);
  Pump();
  EXPECT_EQ(
      logged_,
      (Lines{L"UDP 通道已就绪：小数据包经 UDP 传输。",
             L"提示：UDP 通道不可用，小数据包改经 WebSocket 传输，连接不受影响。",
             L"提示：多半是防火墙拦了 UDP 31080。能用，不用管；想更快就请网络管理员放行它。"}));
  ForgetRecords();

  tunnel_->running = false;
  tunnel_->observer.udpChanged(true);
  Pump();
  EXPECT_EQ(logged_, Lines{});
}

}  // namespace
}  // namespace shell
